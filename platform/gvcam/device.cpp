#include "platform/gvcam/device.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace gvcam {
namespace {

using gige_protocol::byte_view;
using gige_protocol::command_code;
using gige_protocol::status;
namespace standard = gige_protocol::registers;

constexpr std::uint32_t everyAddress = 0xffff'ffff;
constexpr camera_time tickPeriod = std::chrono::milliseconds(100);
constexpr int datagramsAtOnce = 64;  // of one socket, before the others get their turn

std::uint64_t microseconds(camera_time time) {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

local_address address_of_machine(std::uint32_t ip) {
  for (local_address& each : local_addresses()) {
    if (each.ip == ip) {
      return each;
    }
  }
  throw std::system_error(EADDRNOTAVAIL, std::generic_category(), "not an address of this machine");
}

// The sockets that receive commands: first that of the camera's address, then those of broadcasts.
std::vector<udp_socket> listen_at(const local_address& at) {
  std::vector<udp_socket> listeners;
  listeners.emplace_back(endpoint{at.ip, gige_protocol::controlPort});
  for (const std::uint32_t broadcast : {everyAddress, at.ip | ~at.mask}) {
    if (broadcast != at.ip) {
      listeners.emplace_back(endpoint{broadcast, gige_protocol::controlPort}, at.interface);
    }
  }
  return listeners;
}

}  // namespace

device::device(const camera_identity& identity, const camera_setup& setup, const picture::scene& scene,
               const faults& now)
    : identity_(identity),
      setup_(setup),
      scene_(scene),
      memory_(power_up_memory(identity, setup)),
      powerUp_(memory_),
      server_(memory_, setup.resetsOnClose ? &powerUp_ : nullptr),
      faults_(now),
      thermometer_(0) {
  server_.set_occupied(now.isOccupied);
  settle(address_of_machine(identity.ip));
  tick();
  endSignal_ = eventfd(0, EFD_CLOEXEC);
  thread_ = std::thread([this] { run(); });
}

device::~device() {
  eventfd_write(endSignal_, 1);
  thread_.join();
  close(endSignal_);
}

void device::set_faults(const faults& now) {
  const std::scoped_lock lock(mutex_);
  faults_ = now;
  server_.set_occupied(now.isOccupied);
}

std::string device::user_name() const {
  const std::scoped_lock lock(mutex_);
  const byte_view name = memory_.bytes(standard::userDefinedName, standard::userNameSize);
  return {name.begin(), std::ranges::find(name, std::uint8_t{0})};
}

stream_state device::read_stream_state() const {
  const std::scoped_lock lock(mutex_);
  stream_state state{read_settings(memory_), faults_.link,
                     poweredOn_ + std::chrono::duration_cast<clock::duration>(server_.clock_start())};
  state.faults.ignoresResends |= !setup_.canResend;
  state.faults.seed = setup_.seed;
  return state;
}

// ---- In the control thread

void device::run() {
  for (bool isEnding = false; !isEnding;) {
    std::vector<pollfd> ready = {{endSignal_, POLLIN, 0}};
    for (const udp_socket& each : listeners_) {
      ready.push_back({each.descriptor(), POLLIN, 0});
    }
    const camera_time due = answers_.next_due().value_or(camera_time::max()) - now();
    const timespec patience{0, static_cast<long>(std::clamp(due, camera_time(0), tickPeriod).count())};
    ppoll(ready.data(), ready.size(), &patience, nullptr);
    isEnding = ready.front().revents != 0;
    for (const udp_socket& each : listeners_) {
      serve(each);
    }
    if (move_) {
      move();
    }
    tick();
    send_answers();
  }
}

void device::serve(const udp_socket& listener) {
  std::array<std::uint8_t, gige_protocol::largestMessage + 1> room{};  // one more, to see what is too large
  for (int count = 0; count < datagramsAtOnce; ++count) {
    const auto arrival = listener.receive(room);
    if (!arrival) {
      return;
    }
    handle(byte_view(room).first(arrival->size), arrival->from);
  }
}

void device::handle(byte_view datagram, const endpoint& from) {
  std::unique_lock lock(mutex_);
  const outcome result = server_.handle(datagram, from, now());
  const control_faults control = faults_.control;
  lock.unlock();
  if (result.isControlLost || result.isStreamStopped) {
    stream_->stop();
  }
  if (result.isStreamStarted) {
    stream_->start();
  }
  if (result.triggers > 0) {
    stream_->trigger(result.triggers);
  }
  if (result.wantsTestPacket) {
    stream_->send_test_packet();
  }
  if (result.resend && is_client(from)) {
    stream_->send_again(*result.resend);
  }
  if (result.address) {
    move_ = {*result.address, {datagram.begin(), datagram.end()}, from};
  }
  if (result.answer) {
    answers_.put(answer_address(datagram, from), datagram, *result.answer, control, now());
  }
}

// Whether resend requests from there are accepted: from the client with control, and the receiver of the
// stream.
bool device::is_client(const endpoint& from) const {
  const std::scoped_lock lock(mutex_);
  return from.ip == memory_.word(standard::primaryApplicationIp) ||
         from.ip == memory_.word(standard::streamDestination);
}

// A client that is outside of the camera's subnet can ask for a broadcast of the answer.
endpoint device::answer_address(byte_view datagram, const endpoint& from) const {
  const auto request = gige_protocol::parse_command(datagram);
  const bool wantsBroadcast =
      request && (request->code == command_code::discovery || request->code == command_code::force_ip) &&
      (request->flags & gige_protocol::command_flags::broadcastAcknowledge) != 0;
  const bool isNear = ((from.ip ^ address_.ip) & address_.mask) == 0;
  return {wantsBroadcast && !isNear ? everyAddress : from.ip, from.port};
}

// FORCEIP: moves to another address of this machine, or, for 0, back to the one of power-up. The answer comes
// from the new address, or from the old one if the new one cannot be used.
void device::move() {
  const pending_move wanted = *std::exchange(move_, std::nullopt);
  status result = status::success;
  try {
    settle(address_of_machine(wanted.address.ip == 0 ? identity_.ip : wanted.address.ip));
  } catch (const std::system_error&) {
    result = status::invalid_parameter;
  }
  const auto request = gige_protocol::parse_command(wanted.datagram);
  if (request->wants_acknowledge()) {
    answers_.put(answer_address(wanted.datagram, wanted.from), wanted.datagram,
                 make_acknowledge(acknowledge_of(request->code), request->id, result), {}, now());
  }
}

void device::settle(const local_address& at) {
  if (at.ip == address_.ip) {
    return;
  }
  std::vector<udp_socket> listeners = listen_at(at);
  stream_ = std::make_unique<stream>(at.ip, sensor(scene_, setup_.hasNoise, setup_.isStill), setup_.spacing,
                                     [this] { return read_stream_state(); });
  listeners_ = std::move(listeners);
  address_ = at;
  const std::scoped_lock lock(mutex_);
  memory_.set_word(standard::currentIp, at.ip);
  memory_.set_word(standard::currentSubnetMask, at.mask);
  memory_.set_word(standard::streamSourcePort, stream_->port());
}

void device::send_answers() {
  for (const answer_queue::datagram& each : answers_.take_due(now())) {
    listeners_.front().send(each.to, each.content.view());
  }
}

void device::tick() {
  std::unique_lock lock(mutex_);
  const double rate =
      memory_.is_acquiring() ? 1e9 / static_cast<double>(read_settings(memory_).interval.count()) : 0;
  const double inside = thermometer_.after(microseconds(now()), rate);
  memory_.set_number(features::temperature, inside);
  memory_.set_number(features::temperature + numberSize, inside + picture::thermometer::mainboardAbove);
  const bool isLost = server_.expire(now());
  lock.unlock();
  if (isLost) {
    stream_->stop();
  }
}

}  // namespace gvcam
