// The page's API, without a server: requests and their answers.
#include "host/web/live/live_api.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/acquire/sweeps.h"
#include "host/web/live/keep.h"
#include "tests/host/support.h"

namespace {

using nlohmann::json;
using namespace std::chrono_literals;

const std::string kToken = "0123456789abcdefghij";

host::live_camera some_camera() {
  host::live_camera camera;
  camera.serial = "A";
  camera.phase = host::camera_phase::running;
  camera.controls = {
      {"exposure_us", "us", {10, 33'000, true}, false, 2500.0, 5000.0, 5000.0},
      {"gain_db", "dB", {0, 24.1, true}, false, static_cast<double>(0.1F), 0.0, 0.0},
      {"gamma", "", {0.01, 10, false}, false, 1.0, std::nullopt, std::nullopt},
      {"ir_level", "", {0, 65'535, false}, true, 0.0, 0.0, 0.0},
  };
  return camera;
}

class fake_run final : public host::live_run {
 public:
  std::vector<host::live_camera> cameras() override { return {camera}; }
  std::shared_ptr<host::preview_source> preview(const std::string& serial) override {
    return serial == "A" ? source : nullptr;
  }
  host::queue_answer apply(const std::string& serial, const host::light_settings& settings,
                           const std::string& author) override {
    return record(serial + ": " + host::settings_text(settings) + " by " + author);
  }
  host::queue_answer command(const std::string& serial, host::settings_command what,
                             const std::string& author) override {
    return record(serial + ": command " + std::to_string(static_cast<int>(what)) + " by " + author);
  }
  std::string metrics() override { return "figures"; }
  const host::log_tail& log() override { return lines; }
  std::string config_name() override { return "c.toml"; }

  host::live_camera camera = some_camera();
  std::shared_ptr<host::preview_source> source = std::make_shared<host::preview_source>();
  host::log_tail lines;
  std::vector<std::string> commands;
  std::vector<std::string> refusal;

 private:
  host::queue_answer record(const std::string& command) {
    commands.push_back(command);
    return {commands.size(), refusal};
  }
};

class live_api : public testing::Test {
 protected:
  host::web_answer get(const std::string& path, std::map<std::string, std::string, std::less<>> query = {}) {
    host::web_request request;
    request.method = "GET";
    request.path = path;
    request.query = std::move(query);
    request.headers = {{"host", "localhost"}};
    return api.answer(request);
  }
  host::web_answer post(const std::string& path, const std::string& body, const std::string& token = kToken) {
    host::web_request request;
    request.method = "POST";
    request.path = path;
    request.body = body;
    request.peer = "10.0.0.9";
    request.headers = {
        {"host", "localhost"}, {"content-type", "application/json"}, {"authorization", "Bearer " + token}};
    return api.answer(request);
  }
  void offer_frame(std::uint8_t grey = 100) {
    run.source->request_copies();
    host::stored_frame frame = tests::frame_of(32, 16);
    std::fill(frame.pixels.begin(), frame.pixels.end(), grey);
    run.source->offer(frame.info, ++frames, frame.pixels);
  }
  static std::string error_of(const host::web_answer& answer) { return json::parse(answer.body)["error"]; }
  // The body of an answer that is made on another thread.
  static std::string body_of(const host::web_answer& answer) {
    EXPECT_EQ(answer.status, 200) << answer.body;
    return read_until(*answer.stream,
                      [&](const std::string&) { return answer.stream->state() == host::stream_state::over; });
  }
  // Reads a stream until what was read is enough, at most ten seconds; then fails.
  static std::string read_until(host::web_stream& stream,
                                const std::function<bool(const std::string&)>& enough) {
    std::string all;
    std::array<char, 4096> part{};
    for (int time = 0; time < 1000 && !enough(all); ++time) {
      const std::size_t size = stream.read(part);
      all.append(part.data(), size);
      if (size == 0) {
        std::this_thread::sleep_for(10ms);
      }
    }
    EXPECT_TRUE(enough(all)) << all;
    return all;
  }

  fake_run run;
  host::live_viewers viewers{run};
  host::live_api api{run, viewers, host::access_rules({.token = kToken, .hosts = {"localhost"}})};
  std::uint64_t frames = 0;
};

TEST_F(live_api, refuses_with_a_reason) {
  struct refused {
    const char* path;
    std::string body;
    int status;
    const char* reason;
  };
  const std::string settings = "/api/v1/cameras/A/settings";
  for (const auto& [path, body, status, reason] : std::vector<refused>{
           {settings.c_str(), "", 400, "there must be one of exposure_us"},
           {settings.c_str(), "[]", 400, "must be a JSON object"},
           {settings.c_str(), "{", 400, "must be a JSON object"},
           {settings.c_str(), R"({"exposure_us":"5"})", 400, "'exposure_us' can't be applied"},
           {settings.c_str(), R"({"width":5})", 400, "'width' can't be applied"},
           {settings.c_str(), R"({"ir_level":0.5})", 400, "'ir_level' can't be applied"},
           {settings.c_str(), R"({"gain_db":1,"by":7})", 400, "'by' must be a name"},
           {settings.c_str(), R"({"gain_db":1,"by":"a\nb"})", 400, "'by' must be a name"},
           {settings.c_str(), R"({"gain_db":1,"by":")" + std::string(41, 'a') + R"("})", 400,
            "at most 40 bytes"},
           {settings.c_str(), R"({"exposure_us":33001})", 422,
            "exposure_us = 33001: the camera takes 10 to 33000 us"},
           {settings.c_str(), R"({"gain_db":1e300})", 422, "gain_db = inf: the camera takes 0 to 24.1 dB"},
           {settings.c_str(), R"({"gamma":11})", 422, "gamma = 11: a configuration may have 0.01 to 10"},
           {settings.c_str(), R"({"ir_level":-1})", 422, "ir_level = -1"},
           {settings.c_str(), std::string(9000, ' '), 413, "at most 8192 bytes"},
           {"/api/v1/cameras/B/settings", R"({"gain_db":1})", 404, "no camera 'B'"},
           {"/api/v1/cameras/B/undo", "{}", 404, "no camera 'B'"},
           {"/api/v1/cameras", "{}", 405, "only GET"},
           {"/api/v1/views", "[]", 404, "no viewer of that name"},
           {"/api/v2", "{}", 404, "/api/v1/cameras"}}) {
    const host::web_answer answer = post(path, body);
    EXPECT_EQ(answer.status, status) << path << " " << body << answer.body;
    EXPECT_NE(error_of(answer).find(reason), std::string::npos) << answer.body;
  }
  EXPECT_TRUE(run.commands.empty()) << run.commands[0];
  EXPECT_EQ(post(settings, R"({"gain_db":1})", "wrong").status, 401);
  EXPECT_EQ(get(settings).status, 401) << "what is refused does not tell what there is";
}

TEST_F(live_api, queues_settings_in_the_name_of_their_author) {
  const host::web_answer answer =
      post("/api/v1/cameras/A/settings", R"({"exposure_us":33000,"ir_level":1,"by":"Anna"})");
  EXPECT_EQ(answer.status, 202) << answer.body;
  EXPECT_EQ(json::parse(answer.body)["entry"], 1);
  post("/api/v1/cameras/A/undo", R"({"by":""})");
  post("/api/v1/cameras/A/configuration", "");
  post("/api/v1/cameras/A/resume", "{}");
  EXPECT_EQ(run.commands, (std::vector<std::string>{"A: exposure 33000 us, IR level 1 by Anna (10.0.0.9)",
                                                    "A: command 0 by 10.0.0.9", "A: command 1 by 10.0.0.9",
                                                    "A: command 2 by 10.0.0.9"}));
  run.refusal = {"64 requests wait already"};
  EXPECT_EQ(error_of(post("/api/v1/cameras/A/undo", "{}")), "64 requests wait already");
}

TEST_F(live_api, gives_pictures_and_regions_of_the_newest_frame) {
  const host::web_answer early = get("/api/v1/cameras/A/picture");
  EXPECT_EQ(early.status, 503) << "nobody looked, so nothing was copied";
  offer_frame(100);
  const host::web_answer png = get("/api/v1/cameras/A/picture");
  EXPECT_EQ(png.type, "image/png");
  EXPECT_EQ(body_of(png).substr(1, 3), "PNG");
  EXPECT_NE(std::find(png.headers.begin(), png.headers.end(),
                      std::pair<std::string, std::string>("Content-Disposition",
                                                          "attachment; filename=\"A-1.png\"")),
            png.headers.end());
  const host::web_answer jpeg = get("/api/v1/cameras/A/picture", {{"format", "jpg"}, {"width", "0"}});
  EXPECT_EQ(jpeg.type, "image/jpeg");
  EXPECT_EQ(body_of(jpeg).substr(0, 2), "\xff\xd8");
  EXPECT_EQ(get("/api/v1/cameras/A/picture", {{"format", "gif"}}).status, 400);
  const json region =
      json::parse(body_of(get("/api/v1/cameras/A/region", {{"x", "31"}, {"y", "15"}, {"width", "1"}})));
  EXPECT_EQ(region["mean"], 100);
  EXPECT_EQ(region["part"], json({31, 15, 1, 1}));
  for (const auto& [key, value] : {std::pair{"x", "32"},
                                   {"y", "-1"},
                                   {"width", "33"},
                                   {"height", "0"},
                                   {"x", "1e3"},
                                   {"x", "99999999999"}}) {
    EXPECT_GE(get("/api/v1/cameras/A/region", {{key, value}}).status, 400) << key << value;
  }
}

TEST_F(live_api, carries_security_headers_on_every_answer) {
  for (const char* path : {"/", "/main.js", "/api/v1/cameras", "/api/v1/log", "/metrics", "/nowhere"}) {
    const host::web_answer answer = get(path);
    const auto policy = std::find_if(answer.headers.begin(), answer.headers.end(), [](const auto& header) {
      return header.first == "Content-Security-Policy";
    });
    ASSERT_NE(policy, answer.headers.end()) << path;
    EXPECT_NE(policy->second.find("default-src 'none'; script-src 'self'"), std::string::npos);
    EXPECT_EQ(answer.status, path == std::string("/nowhere") ? 404 : 200);
  }
  const std::string page = get("/").body;
  EXPECT_EQ(page.find("http:"), std::string::npos) << "the page needs nothing from outside";
  EXPECT_EQ(page.find("onclick"), std::string::npos) << "the page has no inline script";
}

TEST_F(live_api, streams_events_and_pictures_of_what_is_in_view) {
  run.lines.add(1, "A", "it failed");
  const auto events = get("/api/v1/events", {{"viewer", "v"}}).stream;
  const auto pictures = get("/api/v1/pictures", {{"viewer", "v"}}).stream;
  ASSERT_TRUE(events && pictures);
  EXPECT_EQ(post("/api/v1/views?viewer=w", "[]").status, 404);
  ASSERT_TRUE(viewers.set_views("v", {{.serial = "A", .wantsDetails = true}, {.serial = "B"}}));
  offer_frame();
  const std::string picture = read_until(*pictures, [](const std::string& all) { return all.size() > 400; });
  EXPECT_EQ(json::parse(picture.substr(0, picture.find('\n')))["frame"], frames);
  const std::string news = read_until(
      *events, [](const std::string& all) { return all.find("event: arrivals") != std::string::npos; });
  EXPECT_EQ(news.find("event: cameras\ndata: [{\"camera\":\"A\""), 0U) << news;
  EXPECT_EQ(news.find("it failed"), news.rfind("it failed")) << "a line comes once";
}

TEST_F(live_api, sends_a_viewer_that_stops_reading_nothing_old_afterwards) {
  const auto pictures = viewers.open_pictures("v", {{.serial = "A"}});
  std::array<char, 10> few{};
  offer_frame();
  read_until(*pictures, [](const std::string& all) { return all.size() > 10; });
  for (int frame = 0; frame < 5; ++frame) {  // meanwhile, at ten a second
    std::this_thread::sleep_for(110ms);
    offer_frame();
  }
  std::string rest;
  for (std::size_t size = pictures->read(few); size > 0; size = pictures->read(few)) {
    rest.append(few.data(), size);
  }
  EXPECT_LT(rest.size(), 4000U) << "what is left of the first one, and no more";
  const std::string next = read_until(*pictures, [](const std::string& all) { return all.size() > 400; });
  EXPECT_EQ(json::parse(next.substr(0, next.find('\n')))["frame"], frames);
}

TEST_F(live_api, has_room_for_a_number_of_viewers_and_again_when_one_left) {
  std::vector<std::shared_ptr<host::web_stream>> streams;
  for (std::size_t viewer = 0; viewer < host::live_viewers::kViewersMax; ++viewer) {
    streams.push_back(get("/api/v1/events").stream);
    ASSERT_TRUE(streams.back());
  }
  EXPECT_EQ(get("/api/v1/events").status, 503);
  streams.pop_back();
  std::shared_ptr<host::web_stream> again;
  for (int time = 0; time < 500 && !again; ++time) {  // the viewers' thread may have it for a moment
    again = get("/api/v1/events").stream;
    std::this_thread::sleep_for(again ? 0ms : 10ms);
  }
  EXPECT_TRUE(again);
}

TEST(keep, is_toml_that_has_what_runs_now) {
  EXPECT_EQ(host::kept_toml(some_camera(), "c.toml"),
            "# c.toml: what runs now is different here\n[[camera]]\nserial = \"A\"\n"
            "exposure_us = 2500  # was 5000\ngain_db = 0.1  # was 0\n");
  host::live_camera odd = some_camera();
  odd.serial = "a\"\\\n";
  odd.controls = {{"ir_level", "", {}, true, 1.0, std::nullopt, 0.0}};
  EXPECT_EQ(host::kept_toml(odd, "a\nb"),
            "# a?b: what runs now is different here\n[[camera]]\nserial = \"a\\\"\\\\\\u000A\"\n"
            "ir_level = 1  # was left out\n");
  odd.controls.clear();
  EXPECT_EQ(host::kept_toml(odd, "c.toml").find("[[camera]]"), std::string::npos);
}

TEST(log_tail, keeps_the_last_lines_by_level_and_camera) {
  host::log_tail tail;
  tail.add(1, "A", "one");
  tail.add(2, "B", "two");
  tail.add(4, "A", "never");
  EXPECT_EQ(tail.since(0).size(), 2U);
  EXPECT_EQ(tail.since(0, 1).size(), 1U);
  EXPECT_EQ(tail.since(0, 3, "B").at(0).text, "two");
  EXPECT_TRUE(tail.since(2).empty());
  for (int line = 0; line < 1000; ++line) {
    tail.add(3, "", std::string(1000, 'x'));
  }
  EXPECT_EQ(tail.since(0).size(), host::log_tail::kLines);
  EXPECT_EQ(tail.since(0)[0].text.size(), host::log_tail::kTextMax);
}

}  // namespace
