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

constexpr const char* vendorName = "Emulated Cameras";
constexpr const char* modelName = "gvcam";
constexpr const char* versionText = "1.0";

constexpr std::uint32_t protocolVersion = 0x0002'0000;
constexpr std::uint32_t macHigh = 0x0200;  // locally administered
constexpr std::uint32_t powerUpHeartbeatMs = 3000;
constexpr std::uint32_t pendingTimeoutMs = 1000;
constexpr std::uint32_t ticksPerSecond = 1'000'000'000;
constexpr double powerUpExposureUs = 5000;
constexpr std::uint32_t on = 1;
constexpr std::uint32_t acquisitionContinuous = 1;
constexpr std::uint32_t triggerOfSoftware = 1;
constexpr std::uint32_t lutTypeGamma = 1;
constexpr std::uint32_t temperatureOfMainboard = 1;

constexpr std::uint32_t broadcastIp = 0xffff'ffff;
constexpr camera_time tickPeriod = std::chrono::milliseconds(100);
constexpr int datagramsAtOnce = 64;  // of one socket, before the others get their turn

// The same for the same serial number wherever it runs.
std::uint32_t mac_low(const std::string& serial) {
  std::uint32_t hash = 2166136261U;
  for (const char letter : serial) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  return hash;
}

std::uint64_t microseconds(camera_time time) {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

void write_identity(register_memory& to, const camera_identity& identity) {
  to.set_word(standard::version, protocolVersion);
  to.set_word(standard::deviceMode, gige_protocol::device_mode::bigEndian | gige_protocol::device_mode::utf8);
  to.set_word(standard::macHigh, macHigh);
  to.set_word(standard::macLow, mac_low(identity.serial));
  // Its machine gives it an address, as a DHCP server would.
  to.set_word(standard::supportedIpConfiguration, gige_protocol::ip_configuration::dhcp);
  to.set_word(standard::currentIpConfiguration, gige_protocol::ip_configuration::dhcp);
  to.set_text(standard::manufacturerName, standard::nameSize, vendorName);
  to.set_text(standard::modelName, standard::nameSize, modelName);
  to.set_text(standard::deviceVersion, standard::nameSize, versionText);
  to.set_text(standard::serialNumber, standard::serialSize, identity.serial);
  to.set_text(standard::userDefinedName, standard::userNameSize, identity.userName);
}

void write_capabilities(register_memory& to, const camera_setup& setup) {
  namespace capability = gige_protocol::gvcp_capability;
  to.set_word(standard::interfaceCount, 1);
  to.set_word(standard::streamChannelCount, 1);
  to.set_word(standard::gvspCapability,
              gige_protocol::gvsp_capability::sourcePort | gige_protocol::gvsp_capability::blockIds16Bit);
  to.set_word(standard::gvcpCapability,
              capability::userDefinedName | capability::serialNumber | capability::primaryApplication |
                  capability::extendedStatusCodes | capability::extendedStatusCodes2 |
                  capability::pendingAcknowledge | capability::writeMemory | capability::concatenation |
                  (setup.canResend ? capability::packetResend : 0));
  to.set_word(standard::timestampFrequencyLow, ticksPerSecond);
  to.set_word(standard::pendingTimeout, pendingTimeoutMs);
  to.set_word(standard::streamCapability, gige_protocol::stream_options::extendedChunks);
  to.set_word(features::sensorWidth, setup.width);
  to.set_word(features::sensorHeight, setup.height);
}

// What is not written is off or 0.
void write_settings(register_memory& to, const camera_setup& setup) {
  to.set_word(standard::heartbeatTimeout, powerUpHeartbeatMs);
  to.set_word(standard::gvspConfiguration,
              setup.hasExtendedIds ? gige_protocol::gvsp_configuration::extendedIds : 0);
  to.set_word(standard::streamPacketSize, setup.packetSize);
  to.set_word(standard::streamConfiguration,
              setup.hasExtendedChunks ? gige_protocol::stream_options::extendedChunks : 0);
  to.set_number(features::gain, 1);
  to.set_number(features::gain + numberSize, 1);
  to.set_number(features::exposureTimeUs, powerUpExposureUs);
  to.set_number(features::acquisitionFrameRate, setup.framesPerSecond);
  to.set_number(features::gammaCorrection, 1);
  to.set_word(features::temperatureSelector, temperatureOfMainboard);
  to.set_word(features::lutMode, on);
  to.set_word(features::lutType, lutTypeGamma);
  to.set_word(features::pixelFormat, picture::pixelFormatMono8);
  to.set_word(features::width, setup.width);
  to.set_word(features::height, setup.height);
  to.set_word(features::acquisitionMode, acquisitionContinuous);
  to.set_word(features::triggerSource, triggerOfSoftware);
  to.set_word(features::payloadSize, static_cast<std::uint32_t>(read_settings(to).payload_size()));
}

register_memory power_up_memory(const camera_identity& identity, const camera_setup& setup) {
  register_memory memory(setup.descriptionName, setup.description);
  write_identity(memory, identity);
  write_capabilities(memory, setup);
  write_settings(memory, setup);
  return memory;
}

local_address address_of_machine(std::uint32_t ip) {
  for (local_address& each : local_addresses()) {
    if (each.ip == ip) {
      return each;
    }
  }
  throw std::system_error(EADDRNOTAVAIL, std::generic_category(), "no address of this machine");
}

// Where commands come in: the camera's address first, then what is for everybody.
std::vector<udp_socket> listen_at(const local_address& at) {
  std::vector<udp_socket> listeners;
  listeners.emplace_back(endpoint{at.ip, gige_protocol::controlPort});
  for (const std::uint32_t everybody : {broadcastIp, at.ip | ~at.mask}) {
    if (everybody != at.ip) {
      listeners.emplace_back(endpoint{everybody, gige_protocol::controlPort}, at.interface);
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

stream_state device::look() const {
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
  std::array<std::uint8_t, gige_protocol::largestMessage + 1> room{};  // so that what is too large shows
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

// Whether packets may be sent again for somebody there: the client in control, or the receiver of the stream.
bool device::is_client(const endpoint& from) const {
  const std::scoped_lock lock(mutex_);
  return from.ip == memory_.word(standard::primaryApplicationIp) ||
         from.ip == memory_.word(standard::streamDestination);
}

// A client that this camera's subnet does not reach may ask for an answer to everybody.
endpoint device::answer_address(byte_view datagram, const endpoint& from) const {
  const auto request = gige_protocol::parse_command(datagram);
  const bool isForAll =
      request && (request->code == command_code::discovery || request->code == command_code::force_ip) &&
      (request->flags & gige_protocol::command_flags::broadcastAcknowledge) != 0;
  const bool isNear = ((from.ip ^ address_.ip) & address_.mask) == 0;
  return {isForAll && !isNear ? broadcastIp : from.ip, from.port};
}

// FORCEIP: takes another address of this machine, or, for 0, the one that it had at power-up. It is answered
// from there; when it cannot be had, from where the camera stays.
void device::move() {
  const asked_move asked = *std::exchange(move_, std::nullopt);
  status result = status::success;
  try {
    settle(address_of_machine(asked.address.ip == 0 ? identity_.ip : asked.address.ip));
  } catch (const std::system_error&) {
    result = status::invalid_parameter;
  }
  const auto request = gige_protocol::parse_command(asked.datagram);
  if (request->wants_acknowledge()) {
    answers_.put(answer_address(asked.datagram, asked.from), asked.datagram,
                 make_acknowledge(acknowledge_of(request->code), request->id, result), {}, now());
  }
}

void device::settle(const local_address& at) {
  if (at.ip == address_.ip) {
    return;
  }
  std::vector<udp_socket> listeners = listen_at(at);
  stream_ = std::make_unique<stream>(at.ip, sensor(scene_, setup_.hasNoise, setup_.isStill),
                                     stream_limits{setup_.hasHonestDelay, setup_.linkSpeed},
                                     [this] { return look(); });
  listeners_ = std::move(listeners);
  address_ = at;
  const std::scoped_lock lock(mutex_);
  memory_.set_word(standard::currentIp, at.ip);
  memory_.set_word(standard::currentSubnetMask, at.mask);
  memory_.set_word(standard::streamSourcePort, stream_->port());
}

void device::send_answers() {
  for (const answer_queue::parcel& each : answers_.take_due(now())) {
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
