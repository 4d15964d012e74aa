// What is said of a frame, and the pictures made of it.
#include <gtest/gtest.h>
#include <png.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <numeric>

#include "host/outputs/image_files.h"
#include "host/web/live/grey_image.h"
#include "host/web/live/jpeg.h"
#include "host/web/live/png_text.h"
#include "host/web/live/preview.h"
#include "host/web/live/qr_code.h"
#include "host/web/live/view.h"
#include "tests/host/support.h"

namespace {

using host::grey_image;
using host::image_histogram;
using host::rectangle;

using bytes = std::vector<std::uint8_t>;

TEST(grey_image, tells_histogram_mean_and_shares_of_a_part) {
  const bytes pixels = {0, 0, 10, 255,  //
                        9, 9, 20, 255};
  const grey_image image{pixels, 4, 2};
  const image_histogram all(image, {0, 0, 4, 2});
  EXPECT_DOUBLE_EQ(all.mean(), 558.0 / 8);
  EXPECT_DOUBLE_EQ(all.share(host::kBlack), 0.25);
  EXPECT_DOUBLE_EQ(all.share(host::kWhite), 0.25);
  EXPECT_EQ(all.counts()[9], 2U);
  EXPECT_DOUBLE_EQ(image_histogram(image, {2, 0, 1, 2}).mean(), 15);
  EXPECT_EQ(host::grey_at(image, {2, 1}), 20);
  for (const host::point& outside : {host::point{4, 0}, {0, 2}, {-1, 0}}) {
    EXPECT_EQ(host::grey_at(image, outside), std::nullopt) << outside.x;
  }
}

TEST(grey_image, clips_parts_to_the_image) {
  const grey_image image{{}, 100, 50};
  const rectangle whole = {0, 0, 100, 50};
  for (const auto& [part, expected] : {std::pair{rectangle{10, 10, 20, 20}, rectangle{10, 10, 20, 20}},
                                       {{90, 40, 65'535, 65'535}, {90, 40, 10, 10}},
                                       {{100, 0, 5, 5}, whole},
                                       {{5, 5, 0, 5}, whole},
                                       {{-5, -5, 15, 15}, {0, 0, 10, 10}},
                                       {{2'147'483'647, 0, 2'147'483'647, 1}, whole}}) {
    EXPECT_EQ(host::clipped(part, image), expected) << part.x << " " << part.width;
  }
}

TEST(sharpness, falls_when_the_focus_is_lost_and_not_when_the_light_is) {
  const auto stripes = [](int amplitude, int blur) {
    bytes pixels;
    for (int at = 0; at < 64 * 64; ++at) {
      const int phase = std::abs(at % 64 % 16 - 8);  // a triangle, flattened
      pixels.push_back(static_cast<std::uint8_t>(100 * amplitude / 100 + phase * amplitude / (8 * blur)));
    }
    return pixels;
  };
  const rectangle part = {0, 0, 64, 64};
  const auto of = [&](const bytes& pixels) { return host::sharpness({pixels, 64, 64}, part); };
  EXPECT_GT(of(stripes(100, 1)), 2 * of(stripes(100, 2)));
  EXPECT_NEAR(of(stripes(50, 1)) / of(stripes(100, 1)), 1, 0.1);
  EXPECT_EQ(of(bytes(64 * 64, 0)), 0);
  EXPECT_EQ(host::sharpness({stripes(100, 1), 64, 64}, {0, 0, 2, 64}), 0);
}

TEST(scaled, means_what_a_pixel_stands_for_and_marks_what_is_clipped) {
  const bytes pixels = {10, 20, 30, 40, 0,    //
                        30, 40, 50, 60, 255,  //
                        70, 70, 80, 80, 90,   //
                        70, 70, 80, 80, 0};
  const grey_image image{pixels, 5, 4};
  const host::picture small = host::scaled(image, {0, 0, 4, 4}, 2, false);
  EXPECT_EQ(small.bytes, (bytes{25, 45, 70, 80}));
  EXPECT_EQ(small.height, 2);
  EXPECT_EQ(host::scaled(image, {1, 1, 3, 2}, 999, false).bytes, (bytes{40, 50, 60, 70, 80, 80}));
  const host::picture marked = host::scaled(image, {3, 0, 2, 4}, 1, true);
  EXPECT_EQ(marked.channels, 3);
  EXPECT_EQ(marked.bytes, (bytes{255, 0, 0, 0, 90, 255})) << "white above, black below";
}

TEST(png_texts, are_read_by_others_and_leave_the_picture_as_it_is) {
  const host::stored_frame frame = tests::frame_of(16, 8);
  const bytes png = host::with_texts(host::encode(frame, host::image_format::png),
                                     {{"Camera", "\xc3\xa4 1"}, {"Frame", "9"}});
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_NE(png_image_begin_read_from_memory(&image, png.data(), png.size()), 0) << image.message;
  bytes pixels(PNG_IMAGE_SIZE(image));
  ASSERT_NE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr), 0) << image.message;
  EXPECT_EQ(image.warning_or_error, 0U) << image.message;
  EXPECT_EQ(pixels, frame.pixels);
  const std::string text(png.begin(), png.end());
  EXPECT_NE(text.find(std::string("iTXtCamera\0\0\0\0\0\xc3\xa4 1", 19)), std::string::npos);
}

// The head of a picture as it is sent, and the grey value of its middle after the JPEG was decoded.
struct sent_picture {
  nlohmann::json head;
  int width = 0;
  int height = 0;
  std::uint8_t middle = 0;
};

sent_picture parse_sent(const std::string& sent) {
  const auto end = sent.find('\n');
  sent_picture result;
  result.head = nlohmann::json::parse(sent.substr(0, end));
  const std::string jpeg = sent.substr(end + 1);
  EXPECT_EQ(result.head["bytes"], jpeg.size());
  const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), tjDestroy);
  const auto* from = reinterpret_cast<const unsigned char*>(jpeg.data());
  int subsampling = 0;
  EXPECT_EQ(tjDecompressHeader2(decoder.get(), const_cast<unsigned char*>(from), jpeg.size(), &result.width,
                                &result.height, &subsampling),
            0);
  bytes pixels(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height));
  EXPECT_EQ(tjDecompress2(decoder.get(), from, jpeg.size(), pixels.data(), 0, 0, 0, TJPF_GRAY, 0), 0);
  result.middle = pixels[pixels.size() / 2 + static_cast<std::size_t>(result.width) / 2];
  return result;
}

TEST(picture_maker, sends_what_a_view_asks_for_of_the_frame_itself) {
  host::stored_frame frame = tests::frame_of(640, 480);
  std::fill(frame.pixels.begin(), frame.pixels.end(), std::uint8_t{77});
  frame.pixels[480 / 2 * 640 + 10] = 200;
  host::picture_maker maker;
  const auto all =
      parse_sent(maker.make({.serial = "A", .width = 320, .pointer = host::point{10, 240}}, frame));
  EXPECT_EQ(all.head["frame"], 9);
  EXPECT_EQ(all.head["pointer"], nlohmann::json({10, 240, 200}));
  EXPECT_FALSE(all.head.contains("histogram"));
  EXPECT_FALSE(all.head.contains("sharpness"));
  EXPECT_EQ(all.width, 320);
  EXPECT_EQ(all.height, 240);
  EXPECT_NEAR(all.middle, 77, 2);
  const auto part = parse_sent(maker.make({.serial = "A",
                                           .width = 2048,
                                           .part = rectangle{600, 0, 100, 10},
                                           .focus = rectangle{0, 200, 40, 80},
                                           .wantsDetails = true},
                                          frame));
  EXPECT_EQ(part.head["part"], nlohmann::json({600, 0, 40, 10}));
  EXPECT_EQ(part.width, 40) << "never scaled up";
  EXPECT_EQ(part.head["histogram"][200], 1);
  EXPECT_GT(part.head["sharpness"], 0);
}

TEST(views, that_cannot_be_are_refused) {
  EXPECT_EQ(host::parse_views(R"([{"camera":"A","width":99999,"part":[1,2,3,4],"clipping":true}])"),
            (std::vector<host::camera_view>{
                {.serial = "A", .width = 4096, .part = rectangle{1, 2, 3, 4}, .marksClipping = true}}));
  std::string many = "[{}";
  for (std::size_t view = 0; view < host::kViewsMax; ++view) {
    many += ",{}";
  }
  for (const std::string& wrong :
       {std::string("{"), std::string("{}"), std::string("[1]"), std::string(R"([{"camera":1}])"),
        std::string(R"([{"width":-1}])"), std::string(R"([{"part":[1,2,3]}])"),
        std::string(R"([{"part":[1,2,3,65536]}])"), std::string(R"([{"pointer":[1,-1]}])"),
        std::string(R"([{"focus":[1,2,3,4.5]}])"), std::string(R"([{"details":1}])"),
        std::string(R"([{"colour":1}])"), many + "]"}) {
    EXPECT_THROW(host::parse_views(wrong), host::request_error) << wrong;
  }
}

std::uint64_t nowUs = 0;

class preview : public testing::Test {
 protected:
  void frames(int count, std::uint64_t everyUs) {
    for (int frame = 0; frame < count; ++frame) {
      nowUs += everyUs;
      ++number;
      source.offer(tests::info_of(2, 2), number, bytes(4, static_cast<std::uint8_t>(number)));
      const host::shared_frame newest = source.newest();
      if (newest && (seen.empty() || seen.back() != newest->number)) {
        seen.push_back(newest->number);
      }
    }
  }

  std::uint64_t number = 0;
  std::vector<std::uint64_t> seen;
  std::uint64_t missed = 0;
  host::preview_source source{[this] { return missed; }, [] { return nowUs; }};
};

TEST_F(preview, copies_ten_frames_a_second_and_only_while_they_are_requested) {
  nowUs = 1'000'000'000;
  frames(100, 10'000);
  EXPECT_TRUE(seen.empty());
  source.request_copies();
  frames(100, 10'000);
  EXPECT_EQ(seen.size(), 10U);
  frames(300, 10'000);
  EXPECT_EQ(seen.size(), 30U) << "the request is over after three seconds";
  nowUs += 3'000'000;
  EXPECT_FALSE(source.newest()) << "too old";
}

TEST_F(preview, leaves_a_frame_that_a_viewer_has_as_it_is) {
  nowUs = 1'000'000'000;
  source.request_copies();
  std::vector<host::shared_frame> held;
  for (int frame = 0; frame < 20; ++frame) {
    frames(1, 100'000);
    held.push_back(source.newest());
  }
  for (const host::shared_frame& each : held) {
    EXPECT_EQ(each->pixels, bytes(4, static_cast<std::uint8_t>(each->number)));
  }
  EXPECT_LT(held.back()->number, number) << "viewers that hold on to frames get no more of them";
  held.clear();
  frames(2, 100'000);
  EXPECT_EQ(seen.back(), number);
}

TEST_F(preview, keeps_the_last_arrivals_and_what_was_missed_before_each) {
  nowUs = 0;
  const auto more = static_cast<int>(host::preview_source::kArrivals) + 10;
  frames(more - 1, 1000);
  missed = 3;
  frames(1, 1000);
  const host::frame_arrivals arrivals = source.arrivals_since(0);
  EXPECT_EQ(arrivals.from, 10U);
  EXPECT_EQ(arrivals.all.front().timeUs, 11'000U);
  EXPECT_EQ(arrivals.all.front().missed, 0U);
  EXPECT_EQ(arrivals.all.back().timeUs, static_cast<std::uint64_t>(more) * 1000);
  EXPECT_EQ(arrivals.all.back().missed, 3U);
  EXPECT_EQ(source.arrivals_since(number - 1).all.size(), 1U);
  EXPECT_TRUE(source.arrivals_since(number + 5).all.empty());
}

TEST_F(preview, has_the_rate_of_the_last_seconds_however_seldom_it_is_read) {
  nowUs = 1'000'000'000;
  EXPECT_EQ(source.rate_hz(), 0);
  frames(1000, 100'000);
  frames(200, 20'000);
  EXPECT_NEAR(source.rate_hz(), 50, 0.1);
  frames(3, 4'000'000);
  EXPECT_NEAR(source.rate_hz(), 0.25, 0.01);
  nowUs += 3'000'000;
  EXPECT_NEAR(source.rate_hz(), 0.14, 0.01);
  nowUs += 60'000'000;
  EXPECT_LT(source.rate_hz(), 0.02);
}

TEST(qr_code, has_its_three_finder_patterns_and_refuses_what_is_too_long) {
  const std::string code = host::qr_code("http://127.0.0.1:8080/#token=0123456789");
  // The upper edge of a finder pattern, two lines of seven modules and one of one and one: both halves, upper
  // half.
  const std::string finder = "\u2588\u2580\u2580\u2580\u2580\u2580\u2588";
  std::size_t found = 0;
  for (auto at = code.find(finder); at != std::string::npos; at = code.find(finder, at + 1)) {
    ++found;
  }
  EXPECT_EQ(found, 3U) << code;
  EXPECT_TRUE(host::qr_code(std::string(4000, 'a')).empty());
}

}  // namespace
