// An emulated camera while it has power.
#ifndef PLATFORM_GVCAM_DEVICE_H
#define PLATFORM_GVCAM_DEVICE_H

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/gvcam/answer_queue.h"
#include "platform/gvcam/control_server.h"
#include "platform/gvcam/impairments.h"
#include "platform/gvcam/registers.h"
#include "platform/gvcam/sockets.h"
#include "platform/gvcam/stream.h"
#include "platform/picture/scene.h"
#include "platform/picture/thermometer.h"

namespace gvcam {

// What all cameras of the program have in common.
struct camera_setup {
  std::uint32_t width = 1280;  // of the sensor, which is the window at power-up; pixels
  std::uint32_t height = 1024;
  double framesPerSecond = 30;      // at power-up
  std::uint32_t packetSize = 1500;  // of the stream at power-up, bytes with the IP and UDP heads
  bool hasNoise = true;
  bool isStill = false;           // drawn for the first frame of an acquisition, repeated in the others
  bool resetsOnClose = false;     // power-up settings come back when a client lets go
  bool hasHonestDelay = false;    // packets keep the delay that the client asks for
  std::uint32_t linkSpeed = 0;    // megabits a second that the stream keeps to; 0: as fast as the machine is
  bool canResend = true;          // announces that packets are sent again, and does it
  bool hasExtendedIds = false;    // at power-up: 64-bit block ids
  bool hasExtendedChunks = true;  // at power-up: an image with chunks, rather than chunks only
  std::uint64_t seed = 1;         // of what happens to packets
  std::string descriptionName = "gvcam.xml";
  std::string description;  // the GenICam description
};

struct camera_identity {
  std::string serial;
  std::uint32_t ip = 0;
  std::string userName;
};

struct faults {
  impairments link;
  control_faults control;
  bool isOccupied = false;  // a client that never says anything has control, once nobody else has
};

// Answers and sends in two threads of its own, from its construction to its destruction, which says no word
// to its clients. Members are for one thread.
class device {
 public:
  // With power-up settings. `setup` and `scene` must outlive it. Raises std::system_error when the address
  // cannot be had.
  device(const camera_identity& identity, const camera_setup& setup, const picture::scene& scene,
         const faults& now);
  ~device();
  device(const device&) = delete;
  device& operator=(const device&) = delete;

  void set_faults(const faults& now);
  // As the client with control wrote it last.
  std::string user_name() const;

 private:
  using clock = std::chrono::steady_clock;

  // A FORCEIP that is still to be done.
  struct asked_move {
    gige_protocol::forced_ip address;
    std::vector<std::uint8_t> datagram;
    endpoint from;
  };

  void run();
  void serve(const udp_socket& listener);
  void handle(gige_protocol::byte_view datagram, const endpoint& from);
  void move();
  void settle(const local_address& at);
  void send_answers();
  void tick();
  bool is_client(const endpoint& from) const;
  endpoint answer_address(gige_protocol::byte_view datagram, const endpoint& from) const;
  camera_time now() const { return clock::now() - poweredOn_; }
  stream_state look() const;

  const camera_identity identity_;
  const camera_setup& setup_;
  const picture::scene& scene_;
  const clock::time_point poweredOn_ = clock::now();

  mutable std::mutex mutex_;  // guards these four
  register_memory memory_;
  register_memory powerUp_;
  control_server server_;
  faults faults_;

  // For the control thread, but for their construction.
  picture::thermometer thermometer_;
  answer_queue answers_;
  local_address address_;
  std::vector<udp_socket> listeners_;  // the first one is the camera's own address
  std::optional<asked_move> move_;
  std::unique_ptr<stream> stream_;

  int endSignal_ = -1;  // an eventfd, readable once the control thread is to end
  std::thread thread_;
};

}  // namespace gvcam

#endif
