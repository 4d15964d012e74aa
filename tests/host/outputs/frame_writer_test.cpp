// The pool between acquisition and disk.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <new>
#include <thread>

#include "host/outputs/frame_writer.h"
#include "tests/host/support.h"

namespace {

using tests::frame_of;

using namespace std::chrono_literals;

// A sink that the test opens and closes, and that can fail.
class gated_sink final : public host::frame_sink {
 public:
  std::uint64_t write(const host::stored_frame& frame, const std::stop_token& stop) override {
    std::unique_lock lock(mutex);
    changed.wait(lock, stop, [this] { return isOpen; });
    if (stop.stop_requested() || fails) {
      throw std::bad_alloc();
    }
    if (ends) {
      throw host::output_over("the reader went away");
    }
    numbers.push_back(frame.number);
    return frame.pixels.size();
  }
  void set(bool open, bool failing) {
    const std::lock_guard lock(mutex);
    isOpen = open;
    fails = failing;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable_any changed;
  bool isOpen = false;
  bool fails = false;
  bool ends = false;
  std::vector<std::uint64_t> numbers;
};

TEST(recording, a_slow_disk_loses_frames_of_the_recording_only) {
  auto owned = std::make_unique<gated_sink>();
  gated_sink& sink = *owned;
  host::frame_writer writer("C", std::move(owned), 16U << 20U, 2);
  ASSERT_EQ(writer.pool_size(), 8U);
  const auto frame = frame_of(8, 8);
  const auto offer = [&](std::uint64_t first, std::uint64_t last) {
    for (; first <= last; ++first) {
      writer.offer(frame.info, first, frame.pixels);
    }
  };
  const auto settle = [&] {
    while (!writer.is_idle()) {
      std::this_thread::sleep_for(1ms);
    }
  };
  offer(1, 20);  // ten of them taken, eight fit
  EXPECT_EQ(writer.totals().dropped, 2U);
  sink.set(true, false);
  settle();
  EXPECT_EQ(sink.numbers, (std::vector<std::uint64_t>{1, 3, 5, 7, 9, 11, 13, 15}));
  sink.set(true, true);
  offer(21, 24);
  settle();
  sink.set(true, false);
  offer(25, 25);
  settle();
  EXPECT_EQ(writer.totals().written, 9U);
  EXPECT_EQ(writer.totals().dropped, 4U);
  EXPECT_EQ(writer.totals().bytes, 9U * 64);
  sink.set(false, false);
  offer(27, 31);
  writer.stop();
  EXPECT_EQ(writer.totals().dropped, 7U) << "what waits at the end is counted";
}

TEST(recording, an_output_that_is_over_takes_and_loses_nothing_more) {
  auto owned = std::make_unique<gated_sink>();
  owned->ends = true;
  owned->isOpen = true;
  host::frame_writer writer("C", std::move(owned), 64, 1);
  const auto frame = frame_of(8, 8);
  for (std::uint64_t number = 1; !writer.is_over(); ++number) {
    writer.offer(frame.info, number, frame.pixels);
    std::this_thread::sleep_for(1ms);
  }
  writer.offer(frame.info, 1, frame.pixels);
  EXPECT_EQ(writer.totals().dropped + writer.totals().written, 0U);
}

}  // namespace
