#include "platform/gige/control/camera_control.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/gige/control/addresses.h"
#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/registers.h"

namespace gige {
namespace {

using std::chrono::milliseconds;
namespace protocol = gige_protocol;
namespace registers = gige_protocol::registers;
namespace privilege = gige_protocol::control_privilege;

// Together less than a second, in which the loss of a camera is noticed: one interval, then all tries.
constexpr milliseconds heartbeatInterval(250);
constexpr patience heartbeatPatience{.answer = milliseconds(200), .retries = 2};

// The shortest heartbeat time-out that the standard allows. A camera keeps the control of a client that sent
// a command within that time.
constexpr milliseconds shortestHeartbeatTimeout(500);

// Some cameras take a READREG of the privilege for a heartbeat of the client in control, whoever sends it,
// and so would never free themselves of a dead client. READMEM has no such effect. Returns nothing when the
// client in control has exclusive access; 0 when the camera has no such register.
std::optional<std::uint32_t> read_by_memory(control_channel& camera, std::uint32_t address) {
  std::array<std::uint8_t, 4> bytes{};
  try {
    camera.read_memory(address, bytes);
  } catch (const refused& error) {
    return error.why() == protocol::status::access_denied ? std::nullopt : std::optional(0U);
  }
  return protocol::load<std::uint32_t>(bytes, 0);
}

}  // namespace

controller read_controller(control_channel& camera) {
  const auto bits = read_by_memory(camera, registers::controlChannelPrivilege);
  controller who;
  who.exclusive = !bits || (*bits & privilege::exclusive) != 0;
  who.held = who.exclusive || (*bits & privilege::control) != 0;
  if (who.held) {
    who.address = read_by_memory(camera, registers::primaryApplicationIp).value_or(0);
    who.port =
        static_cast<std::uint16_t>(read_by_memory(camera, registers::primaryApplicationPort).value_or(0));
  }
  return who;
}

std::string text_of(const controller& who) {
  if (!who.held) {
    return "nobody";
  }
  return who.address == 0 ? "another client, the camera does not say which"
                          : address_text(who.address) + " port " + std::to_string(who.port);
}

camera_control::camera_control(std::shared_ptr<connection_state> connection, control_channel& channel,
                               access_mode mode)
    : connection_(std::move(connection)),
      channel_(channel),
      probe_(connection_, channel.own_address(), channel.camera_address(), heartbeatPatience),
      mode_(mode) {
  check_access();
  try {
    take_control();
    thread_ = std::thread([this] { run(); });
  } catch (...) {
    connection_->hurry(closingBudget);
    release_control();
    throw;
  }
}

camera_control::~camera_control() {
  connection_->hurry(closingBudget);
  {
    const std::scoped_lock lock(mutex_);
    ended_ = true;
  }
  end_.notify_all();
  thread_.join();
  release_control();
}

void camera_control::check_access() {
  const controller who = read_controller(channel_);
  if (mode_ == access_mode::monitor ? who.exclusive : who.held) {
    raise_denied("is controlled by " + text_of(who));
  }
}

void camera_control::take_control() {
  if (mode_ == access_mode::monitor) {
    return;
  }
  const std::uint32_t wanted =
      privilege::control | (mode_ == access_mode::exclusive ? privilege::exclusive : 0U);
  try {
    channel_.write_register(registers::controlChannelPrivilege, wanted);
  } catch (const refused&) {
    check_access();  // another client may have been quicker
    throw;
  }
  if ((channel_.read_register(registers::controlChannelPrivilege) & wanted) == 0) {
    raise_denied("takes the command to give control, and does not give it");
  }
}

void camera_control::raise_denied(const std::string& why) const {
  throw control_denied("camera " + connection_->camera() + " at " + address_text(channel_.camera_address()) +
                       " " + why);
}

void camera_control::release_control() {
  if (mode_ != access_mode::monitor) {
    channel_.write_when_closing(registers::controlChannelPrivilege, 0);
  }
}

// ---- The thread

void camera_control::run() {
  std::unique_lock lock(mutex_);
  while (!end_.wait_until(lock, last_sign_of_life() + heartbeatInterval, [this] { return ended_; }) &&
         !connection_->is_lost()) {
    lock.unlock();
    const bool denied = channel_.take_denial();
    if (denied || control_channel::clock::now() >= last_sign_of_life() + heartbeatInterval) {
      send_heartbeat(denied);
    }
    lock.lock();
  }
}

control_channel::clock::time_point camera_control::last_sign_of_life() const {
  return std::max(channel_.last_sign_of_life(), probe_.last_sign_of_life());
}

void camera_control::send_heartbeat(bool denied) {
  const bool checksOwner =
      denied || control_channel::clock::now() - channel_.last_sign_of_life() >= shortestHeartbeatTimeout;
  try {
    probe_camera(checksOwner);
  } catch (const not_answered&) {
    if (!connection_->is_hurried()) {
      connection_->lose("it does not answer any more");
    }
  } catch (const control_error&) {  // refused: the camera is there; lost: `lose` was called already
  }
}

void camera_control::probe_camera(bool checksOwner) {
  const std::uint32_t question =
      mode_ == access_mode::monitor ? registers::version : registers::controlChannelPrivilege;
  const auto answer = channel_.read_register_if_idle(question, heartbeatPatience);
  if (!answer) {
    probe_.read_register(registers::version);
  } else if (mode_ != access_mode::monitor) {
    check_control(*answer, checksOwner);
  }
}

void camera_control::check_control(std::uint32_t bits, bool checksOwner) {
  if ((bits & (privilege::control | privilege::exclusive)) == 0) {
    connection_->lose("control was taken away, nobody has it");
    return;
  }
  if (!checksOwner) {
    return;
  }
  const controller who = read_controller(probe_);
  const bool ours = who.address == channel_.own_address() && who.port == channel_.own_port();
  if (who.address != 0 && !ours) {
    connection_->lose("control was taken away, " + text_of(who) + " has it");
  }
}

}  // namespace gige
