// The stream of an emulated camera: frames, at their time, as packets to whoever the registers name.
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
#include "platform/gvcam/impairments.h"
#include "platform/gvcam/pacer.h"
#include "platform/gvcam/sensor.h"
#include "platform/gvcam/sockets.h"

namespace gvcam {

// What the next frame is made with, and what happens to it.
struct stream_state {
  frame_settings settings;
  impairments faults;
  std::chrono::steady_clock::time_point clockStart;  // since when timestamps count
};

// What keeps packets apart, besides the machine.
struct stream_limits {
  bool keepsPacketDelay = false;  // the delay that the client asks for
  std::uint32_t linkSpeed = 0;    // of the camera's link, megabits a second; 0: no limit
};

// Has a thread of its own that draws and sends. All members are for any one other thread.
class stream {
 public:
  // Tells the state of the moment; called in either thread.
  using look_up = std::function<stream_state()>;

  // Sends from that address. `view` must outlive it. Raises std::system_error when there is no socket.
  stream(std::uint32_t ip, sensor view, stream_limits limits, look_up look);
  ~stream();
  stream(const stream&) = delete;
  stream& operator=(const stream&) = delete;

  std::uint16_t port() const { return socket_.port(); }

  // Begins an acquisition with frame 1.
  void start();
  // Ends it, and returns once the frame under way is sent.
  void stop();
  // Asks for so many frames by software; they count while the trigger is on.
  void trigger(unsigned count);

  // One packet of the size of the moment that means nothing.
  void send_test_packet();
  // Sends packets of one of the latest frames again, or says that they are not available.
  void send_again(const gige_protocol::resend_request& request);

 private:
  using frame_pointer = std::shared_ptr<const frame>;
  using clock = std::chrono::steady_clock;

  void run();
  void acquire(std::unique_lock<std::mutex>& lock);
  bool wait_for_frame(std::unique_lock<std::mutex>& lock, std::uint64_t acquisition, const pacer& pace);
  void expose_and_send(const stream_state& now, std::uint64_t blockId);
  void keep(const frame_pointer& made);
  frame_pointer kept(std::uint64_t blockId);
  void send(const stream_state& now, const frame& made);
  std::chrono::nanoseconds packet_distance(const frame_settings& settings) const;
  void wait_until(clock::time_point when);

  udp_socket socket_;
  sensor sensor_;
  const stream_limits limits_;
  look_up look_;
  std::uint64_t attempts_ = 0;  // packets that were asked for again

  std::mutex mutex_;
  std::condition_variable wake_;  // the thread
  std::condition_variable idle_;  // who waits for the thread
  bool isEnding_ = false;
  bool isRunning_ = false;
  std::uint64_t acquisition_ = 0;  // how many were started
  bool isSending_ = false;         // a frame is drawn or sent
  unsigned triggers_ = 0;
  std::deque<frame_pointer> frames_;  // the latest, to be sent again

  std::thread thread_;  // last, for it uses the others
};

}  // namespace gvcam

#endif
