// The stream of an emulated camera: frames as packets, at their time, to the destination in the registers.
#ifndef PLATFORM_GVCAM_STREAM_H
#define PLATFORM_GVCAM_STREAM_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gvcam/frame.h"
#include "platform/gvcam/frame_pacer.h"
#include "platform/gvcam/impairments.h"
#include "platform/gvcam/packet_spacing.h"
#include "platform/gvcam/sensor.h"
#include "platform/gvcam/sockets.h"

namespace gvcam {

// What the stream depends on.
struct stream_state {
  frame_settings settings;
  impairments faults;
  std::chrono::steady_clock::time_point clockStart;  // when timestamps were 0
};

// It has a thread, which draws and sends. Its members may be called by one other thread.
class stream {
 public:
  // Returns the current state. Called in both threads.
  using state_reader = std::function<stream_state()>;

  // Sends from that address. Raises std::system_error when a socket cannot be bound to it.
  stream(std::uint32_t ip, sensor source, packet_spacing spacing, state_reader read);
  ~stream();
  stream(const stream&) = delete;
  stream& operator=(const stream&) = delete;

  std::uint16_t port() const { return socket_.port(); }

  // Begins an acquisition with frame 1.
  void start();
  // Ends it. Returns when the current frame is sent.
  void stop();
  // Requests that many frames. Software triggers count while TriggerMode is on.
  void trigger(unsigned count);

  // Sends a test packet of the current packet size.
  void send_test_packet();
  // Sends packets of one of the latest frames again, or packets that say "not available".
  void send_again(const gige_protocol::resend_request& request);

 private:
  using frame_pointer = std::shared_ptr<const frame>;
  using clock = std::chrono::steady_clock;

  void run();
  void acquire(std::unique_lock<std::mutex>& lock);
  bool wait_for_frame(std::unique_lock<std::mutex>& lock, std::uint64_t acquisition, const frame_pacer& pace);
  void expose_and_send(const stream_state& now, std::uint64_t blockId);
  void keep(const frame_pointer& made);
  frame_pointer kept(std::uint64_t blockId);
  void send(const stream_state& now, const frame& made);
  void wait_until(clock::time_point when);

  udp_socket socket_;
  sensor sensor_;
  const packet_spacing spacing_;
  state_reader read_state_;
  std::uint64_t attempts_ = 0;  // packets that were requested again

  std::mutex mutex_;
  std::condition_variable wake_;  // wakes the stream's thread
  std::condition_variable idle_;  // wakes the other one when a frame is sent
  bool isEnding_ = false;
  bool isRunning_ = false;
  std::uint64_t acquisition_ = 0;  // counts acquisitions
  bool isSending_ = false;         // the thread draws or sends a frame
  unsigned triggers_ = 0;
  std::deque<frame_pointer> frames_;  // the latest ones, for resend requests

  std::thread thread_;  // last, because it uses the other members
};

}  // namespace gvcam

#endif
