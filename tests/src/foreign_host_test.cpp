// The bundle as a host sees it that shares nothing with it but the contract: it loads the built library, and
// has written down for itself which functions an object has, in which order.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

// The interfaces as this host wrote them down for itself: what counts is the order of their functions.
struct table {
  virtual ~table() = default;
  virtual void retain() = 0;
  virtual void release() = 0;
  virtual bool getBool(std::uint8_t row, std::uint8_t col, bool& out) const = 0;
  virtual bool getFloat(std::uint8_t row, std::uint8_t col, float& out) const = 0;
  virtual bool getInt64(std::uint8_t row, std::uint8_t col, std::int64_t& out) const = 0;
  virtual bool getString(std::uint8_t row, std::uint8_t col, std::string& out) const = 0;
  virtual struct sweep_table* clone() const = 0;
};
struct sweep_table : table {
  virtual void setBool(std::uint8_t row, std::uint8_t col, bool value) = 0;
  virtual void setFloat(std::uint8_t row, std::uint8_t col, float value) = 0;
  virtual void setInt64(std::uint8_t row, std::uint8_t col, std::int64_t value) = 0;
  virtual void setString(std::uint8_t row, std::uint8_t col, std::string value) = 0;
  virtual void update(const table* source) = 0;
};
struct frame_info {
  std::uint64_t timeUs;
  float exposureUs, gainDb;
  std::uint16_t width, height;
  std::uint32_t format;
};
struct stream_handler {
  virtual void onFrameTick(float tempC) = 0;
  virtual void onFrame(const frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) = 0;
  virtual void onNoFrame() = 0;
};
struct device_handler {
  virtual void heartbeat() = 0;
  virtual std::int32_t getPendingSignal() = 0;
  virtual bool tryPopPendingSweepConf(sweep_table* sweep) = 0;
};
struct device {
  virtual std::int32_t run(stream_handler* stream) = 0;
  virtual void collectStats(void (*callback)(void* context, const char* json), void* context) = 0;
  virtual void destroy() = 0;
};

// Rows of column 0.
struct host_table : table {
  void retain() override { ++references; }
  void release() override { --references; }
  bool getBool(std::uint8_t row, std::uint8_t, bool& out) const override {
    out = true;
    return row == 4;
  }
  bool getFloat(std::uint8_t row, std::uint8_t col, float& out) const override {
    return find(floats, row, col, out);
  }
  bool getInt64(std::uint8_t row, std::uint8_t col, std::int64_t& out) const override {
    return find(integers, row, col, out);
  }
  bool getString(std::uint8_t row, std::uint8_t, std::string& out) const override {
    out = "WIRED";
    return row == 0;
  }
  sweep_table* clone() const override { return nullptr; }

  template <class Value>
  static bool find(const std::map<std::uint8_t, Value>& cells, std::uint8_t row, std::uint8_t col,
                   Value& out) {
    const auto cell = cells.find(row);
    const bool isThere = col == 0 && cell != cells.end();
    out = isThere ? cell->second : out;
    return isThere;
  }

  std::map<std::uint8_t, float> floats{{2, 50.0F}, {10, 6.0F}, {11, 2000.0F}};
  std::map<std::uint8_t, std::int64_t> integers{{1, 1500}, {3, 1},  {5, 64}, {6, 32}, {7, 320}, {8, 240},
                                                {12, 1},   {13, 1}, {14, 6}, {16, 3}, {17, 2},  {18, 50}};
  int references = 1;
};

struct host : device_handler, stream_handler {
  void heartbeat() override { ++heartbeats; }
  std::int32_t getPendingSignal() override { return heartbeats < 4 ? 0 : 2; }
  bool tryPopPendingSweepConf(sweep_table* sweep) override {
    if (++questions != 2) {
      return false;
    }
    sweep->setBool(200, 1, true);
    sweep->setFloat(11, 0, 1000.0F);
    sweep->setInt64(12, 0, 0);
    sweep->setString(200, 2, "text");
    sweep_table* copy = sweep->clone();
    copy->setFloat(10, 0, 12.0F);
    sweep->update(copy);
    copy->release();
    sweep->retain();
    sweep->release();
    float gain = 0;
    std::string text;
    EXPECT_TRUE(sweep->getFloat(10, 0, gain));
    EXPECT_EQ(gain, 12.0F);
    EXPECT_TRUE(sweep->getString(200, 2, text));
    EXPECT_EQ(text, "text");
    return true;
  }
  void onFrameTick(float tempC) override { ticks += tempC > 0.0F ? 1 : 0; }
  void onFrame(const frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) override {
    frames.push_back(*info);
    lastPixels.assign(data, data + byteCount);
  }
  void onNoFrame() override { ++emptyWaits; }

  int heartbeats = 0, ticks = 0, emptyWaits = 0, questions = 0;
  std::vector<frame_info> frames;
  std::vector<std::uint8_t> lastPixels;
};

void* load(const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_GLOBAL);
  EXPECT_NE(library, nullptr) << dlerror();
  return library;
}

// Catches a moved slot, a changed row or field, and an object that either side frees wrongly.
TEST(foreign_host, drives_a_camera_through_slots) {
  setenv("SIM_CAMERAS", "serial=WIRED sensor=640x480 pacing=free", 1);
  setenv("LOG2_LEVEL", "2", 1);
  load(GEVAPI_LIBRARY);
  load(LOG2_LIBRARY);
  void* bundle = dlopen(BUNDLE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(bundle, nullptr) << dlerror();
  const auto init = reinterpret_cast<std::int32_t (*)()>(dlsym(bundle, "MgBundleInit"));
  const auto create =
      reinterpret_cast<device* (*)(device_handler*, table*)>(dlsym(bundle, "MgBundleCreateDevice"));
  const auto fini = reinterpret_cast<void (*)()>(dlsym(bundle, "MgBundleFini"));

  EXPECT_EQ(init(), 1);
  host camera;
  host_table config;
  device* made = create(&camera, &config);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(config.references, 1);
  EXPECT_EQ(made->run(&camera), 2);
  std::string json;
  made->collectStats([](void* context, const char* text) { *static_cast<std::string*>(context) = text; },
                     &json);
  made->destroy();
  fini();
  dlclose(bundle);

  EXPECT_EQ((std::array{camera.heartbeats, camera.ticks, camera.emptyWaits, camera.questions}),
            (std::array{4, 4, 1, 3}));
  EXPECT_THAT(json,
              testing::StartsWith(
                  R"({"type":"mediagrabber~device","name": "mediagrabber.0~device.0","stat": {"temp": )"));
  ASSERT_EQ(camera.frames.size(), 3U);
  EXPECT_EQ(camera.lastPixels.size(), 320U * 240);
  const frame_info& first = camera.frames.front();
  EXPECT_GT(first.timeUs, std::uint64_t{1'500'000'000'000'000});
  EXPECT_EQ((std::array{first.exposureUs, camera.frames.back().exposureUs}), (std::array{2000.0F, 1000.0F}));
  EXPECT_NEAR(first.gainDb, 6.0, 0.01);
  EXPECT_NEAR(camera.frames.back().gainDb, 12.0, 0.01);
  EXPECT_EQ((std::array<std::uint32_t, 3>{first.width, first.height, first.format}),
            (std::array<std::uint32_t, 3>{320, 240, 1}));
}

std::string output(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> part{};
  while (pipe != nullptr && fgets(part.data(), part.size(), pipe) != nullptr) {
    text += part.data();
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

// Catches a symbol that slips out, and a dependency that nobody wanted.
TEST(foreign_host, finds_three_symbols_and_no_dependency_but_the_two_libraries) {
  EXPECT_EQ(output("nm -D --defined-only --format=just-symbols " BUNDLE_LIBRARY " | sort"),
            "MgBundleCreateDevice\nMgBundleFini\nMgBundleInit\n");
  EXPECT_THAT(output("readelf -d " BUNDLE_LIBRARY), testing::Not(testing::HasSubstr("PATH")));
  if (std::strlen(SANITIZERS) == 0) {
    const char* const ours =
        " | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p' | grep -vE '^lib(c|m|gcc_s|stdc..)\\.so' | sort";
    EXPECT_EQ(output(std::string("readelf -d " BUNDLE_LIBRARY) + ours), "libGevApi.so.2\nliblog2.so\n");
  }
}

// Catches a bundle that runs on a library whose node interfaces are laid out otherwise.
TEST(foreign_host, is_told_why_another_camera_library_does_not_fit) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        load(OTHER_GEVAPI_LIBRARY);
        load(LOG2_LIBRARY);
        const bool loaded = dlopen(BUNDLE_LIBRARY, RTLD_NOW) != nullptr;
        std::fputs(loaded ? "loaded" : dlerror(), stderr);
        std::exit(loaded ? 0 : 7);
      },
      testing::ExitedWithCode(7), "built_with_stand_in_GenApi_headers");
}

}  // namespace
