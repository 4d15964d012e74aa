// An emulated camera while it is on: its sockets and threads.
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
#include "platform/gvcam/power_up.h"
#include "platform/gvcam/sockets.h"
#include "platform/gvcam/stream.h"
#include "platform/picture/scene.h"
#include "platform/picture/thermometer.h"

namespace gvcam {

struct faults {
  impairments link;
  control_faults control;
  bool isOccupied = false;  // see control_server::set_occupied
};

// It answers and sends in two threads of its own until it is destroyed. Clients are not informed of its end.
// Members are for one thread.
class device {
 public:
  // With power-up settings. `setup` and `scene` must outlive it. Raises std::system_error when it cannot
  // listen at its address.
  device(const camera_identity& identity, const camera_setup& setup, const picture::scene& scene,
         const faults& now);
  ~device();
  device(const device&) = delete;
  device& operator=(const device&) = delete;

  void set_faults(const faults& now);
  // DeviceUserID.
  std::string user_name() const;

 private:
  using clock = std::chrono::steady_clock;

  // A FORCEIP that is not executed yet.
  struct pending_move {
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
  stream_state read_stream_state() const;

  const camera_identity identity_;
  const camera_setup& setup_;
  const picture::scene& scene_;
  const clock::time_point poweredOn_ = clock::now();

  mutable std::mutex mutex_;  // guards these four
  register_memory memory_;
  register_memory powerUp_;
  control_server server_;
  faults faults_;

  // For the control thread, once constructed.
  picture::thermometer thermometer_;
  answer_queue answers_;
  local_address address_;
  std::vector<udp_socket> listeners_;  // the first one has the camera's own address
  std::optional<pending_move> move_;
  std::unique_ptr<stream> stream_;

  int endSignal_ = -1;  // an eventfd, readable when the control thread is to end
  std::thread thread_;
};

}  // namespace gvcam

#endif
