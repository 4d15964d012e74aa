// Access to a camera: taking control, keeping it with heartbeats, and noticing its loss.
#ifndef PLATFORM_GIGE_CONTROL_CAMERA_CONTROL_H
#define PLATFORM_GIGE_CONTROL_CAMERA_CONTROL_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/gige/control/connection_state.h"
#include "platform/gige/control/control_channel.h"

namespace gige {

// The client that has control of a camera, by the camera's registers.
struct controller {
  bool held = false;          // a client has control
  bool exclusive = false;     // and no other client may read
  std::uint32_t address = 0;  // of the client; 0: the camera does not say
  std::uint16_t port = 0;
};

// Needs no control of the camera. Raises what commands raise.
controller read_controller(control_channel& camera);
// "nobody", "192.168.0.5 port 4711", or "another client, the camera does not say which".
std::string text_of(const controller& who);

enum class access_mode {
  monitor,   // read only, without control
  control,   // others may read
  exclusive  // others may not even read
};

// Access to a camera, from the construction to the destruction. Each answered command is a sign of life.
// After a quarter of a second without one, the thread of this object sends a heartbeat: it reads the
// privilege register. With a command for every frame, there is no heartbeat. Frames are no sign of life,
// because a camera frees itself of a client that sends no commands.
//
// The connection is lost within a second after the camera stopped answering, and soon after another client
// took control, which the reason names. While a command waits for its answer, the heartbeat goes through a
// second socket. So a silent register is not taken for a lost camera.
class camera_control {
 public:
  // Takes control unless the mode is `monitor`. Raises control_denied when another client has it or the
  // camera does not give it, and what commands raise. `channel` outlives this object; the caller sets its
  // patience.
  camera_control(std::shared_ptr<connection_state> connection, control_channel& channel, access_mode mode);
  camera_control(const camera_control&) = delete;
  camera_control& operator=(const camera_control&) = delete;
  // Hurries the connection and gives control back. Takes 0.1 s at most, from an earlier `hurry` if there was
  // one.
  ~camera_control();

 private:
  void check_access();
  void take_control();
  [[noreturn]] void raise_denied(const std::string& why) const;
  void release_control();

  // On the heartbeat's thread.
  void run();
  control_channel::clock::time_point last_sign_of_life() const;
  void send_heartbeat(bool denied);
  void probe_camera(bool checksOwner);
  void check_control(std::uint32_t bits, bool checksOwner);

  const std::shared_ptr<connection_state> connection_;
  control_channel& channel_;
  control_channel probe_;  // for heartbeats while a command waits in channel_
  const access_mode mode_;
  std::mutex mutex_;
  std::condition_variable end_;
  bool ended_ = false;  // under the lock
  std::thread thread_;
};

}  // namespace gige

#endif
