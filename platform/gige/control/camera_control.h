// Access to a camera: who controls it, taking control, keeping it, and noticing when it is gone.
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

// Who controls a camera, as it tells anybody who asks.
struct controller {
  bool held = false;          // somebody does
  bool exclusive = false;     // and nobody else may even read
  std::uint32_t address = 0;  // of who does; 0 when the camera does not name it
  std::uint16_t port = 0;
};

// Asks the camera, without having control or taking any. Raises what commands raise.
controller read_controller(control_channel& camera);
// "nobody", "192.168.0.5 port 4711", or "another client, the camera does not say which".
std::string text_of(const controller& who);

enum class access_mode {
  monitor,   // read only
  control,   // others may read
  exclusive  // nobody else may read
};

// Has access to a camera, from the construction to the end. A thread of its own sees that the camera is there
// and stays ours. Any command that is answered is a sign of life; where there was none for a quarter of a
// second, the thread sends a heartbeat. So a camera that is asked something with every frame is asked no more
// for this. Frames are no such sign: the camera frees itself of a client that sends no commands.
//
// The link is lost within a second when the camera answers nothing at all, and soon after control was taken
// away: the reason says by whom. While a command waits for its answer, the camera is asked through a second
// socket whether it is there, so that one silent register is told from a camera that is gone.
class camera_control {
 public:
  // Checks that the camera is free for that mode, and takes control unless the mode is `monitor`. Raises
  // control_denied when another client has it, or the camera does not give it, and what commands raise. The
  // channel must outlive this; who calls sets its patience.
  camera_control(std::shared_ptr<connection_state> connection, control_channel& channel, access_mode mode);
  camera_control(const camera_control&) = delete;
  camera_control& operator=(const camera_control&) = delete;
  // Hurries the link, and gives control back. Takes 0.1 s at most, from an earlier `hurry` if there was one.
  ~camera_control();

 private:
  void check_access();
  void take_control();
  [[noreturn]] void raise_denied(const std::string& why) const;
  void release_control();

  // On the thread.
  void run();
  control_channel::clock::time_point last_sign_of_life() const;
  void send_heartbeat(bool denied);
  void probe_camera(bool mayBeOfAnother);
  void check_control(std::uint32_t bits, bool mayBeOfAnother);

  const std::shared_ptr<connection_state> connection_;
  control_channel& channel_;
  control_channel probe_;  // for questions while a command is under way
  const access_mode mode_;
  std::mutex mutex_;
  std::condition_variable end_;
  bool ended_ = false;  // under the lock
  std::thread thread_;
};

}  // namespace gige

#endif
