#include "platform/gige/stream/frame_stream.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>

#include "core/log.h"
#include "platform/gige/stream/frame_buffers.h"
#include "platform/gige/stream/frame_queue.h"
#include "platform/gige/stream/packet_size.h"
#include "platform/gige/stream/receiving_thread.h"
#include "platform/gige/stream/stream_health.h"
#include "platform/gige/stream/stream_socket.h"

namespace gige {
namespace {

using std::chrono::milliseconds;

// Two frames are in progress, and the next one has its memory.
constexpr std::uint64_t framesReceived = 3;

constexpr milliseconds testPacketPatience(15);

bool uses_same_socket(const stream_setup& a, const stream_setup& b) {
  return a.ownAddress == b.ownAddress && a.cameraAddress == b.cameraAddress;
}

bool uses_same_buffers(const stream_setup& a, const stream_setup& b) {
  return a.payloadBytes == b.payloadBytes && a.framesBuffered == b.framesBuffered &&
         a.memoryLimitBytes == b.memoryLimitBytes;
}

frame_buffers make_buffers(const stream_setup& setup) {
  const std::uint64_t stride = frame_buffers::stride_of(setup.payloadBytes);
  const std::uint64_t possible = setup.memoryLimitBytes / std::max<std::uint64_t>(stride, 1);
  if (setup.framesBuffered > possible) {
    LOG(1, "fail: %u buffers of %u bytes are more than the %" PRIu64 " bytes allowed", setup.framesBuffered,
        setup.payloadBytes, setup.memoryLimitBytes);
    throw std::bad_alloc();
  }
  return {std::min(setup.framesBuffered + framesReceived, possible), setup.payloadBytes};
}

// Nanoseconds on the camera's clock.
std::uint64_t time_of(std::uint64_t ticks, std::uint64_t ticksPerSecond) {
  constexpr std::uint64_t nsPerSecond = 1'000'000'000;
  if (ticksPerSecond == 0 || ticksPerSecond == nsPerSecond) {
    return ticks;
  }
  const double rest = static_cast<double>(ticks % ticksPerSecond) / static_cast<double>(ticksPerSecond);
  return ticks / ticksPerSecond * nsPerSecond + static_cast<std::uint64_t>(rest * 1e9);
}

// Waits for a packet that a test packet of that size can be; drops all others.
bool test_packet_arrives(const stream_socket& socket, std::uint32_t size) {
  using std::chrono::steady_clock;
  constexpr std::size_t headers = gige_protocol::ipHeaderSize + gige_protocol::udpHeaderSize;
  const moment deadline = steady_clock::now() + testPacketPatience;
  do {
    pollfd packet{socket.get(), POLLIN, 0};
    const timespec left = time_until(deadline);
    ppoll(&packet, 1, &left, nullptr);
    std::array<std::uint8_t, gige_protocol::extendedHeaderSize> begin{};
    const ssize_t got = recv(socket.get(), begin.data(), begin.size(), MSG_DONTWAIT | MSG_TRUNC);
    const auto whole = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    const auto header =
        gige_protocol::parse_packet_header(std::span(begin).first(std::min(whole, begin.size())));
    if (header && header->is_test() && whole + headers == size) {
      return true;
    }
  } while (steady_clock::now() < deadline);
  return false;
}

}  // namespace

// Each member uses those above it.
struct frame_stream::parts {
  stream_setup setup;
  stream_health health;
  frame_queue queue;
  std::optional<stream_socket> socket;
  std::optional<receiving_thread> receiver;

  std::mutex closing;                       // held by the thread that ends the receiving thread
  camera_extension_health_record before{};  // the transfer began

  void log_setup();
  void log_transfer() const;
};

frame_stream::frame_stream() : parts_(std::make_unique<parts>()) {}

frame_stream::~frame_stream() {
  clear();
}

// ---- Preparing

void frame_stream::prepare(const stream_setup& setup) {
  parts& own = *parts_;
  if (prepared() && setup == own.setup) {
    return;
  }
  try {
    own.receiver.reset();
    if (!own.socket || !uses_same_socket(setup, own.setup)) {
      own.socket.emplace(setup.ownAddress, setup.cameraAddress);
    }
    if (own.queue.buffer_count() == 0 || !uses_same_buffers(setup, own.setup)) {
      own.queue.hold({}, 0);  // never two sets of buffers at a time
      own.queue.hold(make_buffers(setup), setup.framesBuffered);
    }
    own.receiver.emplace(setup, *own.socket, own.queue, own.health);
    own.setup = setup;
    own.log_setup();
  } catch (const std::invalid_argument& error) {
    LOG(1, "fail: image stream of %s: %s", setup.camera.c_str(), error.what());
    clear();
    throw;
  } catch (...) {
    clear();
    throw;
  }
}

void frame_stream::parts::log_setup() {
  const std::uint32_t granted = receiver->buffer_granted();
  const bool ring = receiver->transport() == camera_extension_packet_ring;
  const auto buffers = static_cast<std::uint32_t>(queue.buffer_count());
  health.grant(receiver->transport(), setup.packetBytes, granted, buffers);
  LOG(4, "done: stream of %s (transport:%s, packet-size:%u, buffers:%u of %u bytes)", setup.camera.c_str(),
      ring ? "packet ring" : "UDP", setup.packetBytes, buffers, setup.payloadBytes);
  const std::uint32_t requested = receiver->buffer_requested();
  const bool enough = granted >= requested;
  LOG(enough ? 4 : 2, "%s: socket buffer of %s (asked-for:%u, granted:%u bytes%s)", enough ? "done" : "fail",
      setup.camera.c_str(), requested, granted, enough || ring ? "" : ", limit: sysctl net.core.rmem_max");
}

bool frame_stream::prepared() const {
  return parts_->receiver.has_value();
}

std::uint16_t frame_stream::port() const {
  return parts_->socket ? parts_->socket->port() : std::uint16_t{0};
}

std::uint32_t frame_stream::find_packet_size(std::uint32_t requested, const fire_test_packet& fire) {
  const stream_socket& socket = *parts_->socket;
  socket.discard();
  socket.open_firewall();
  return gige::find_packet_size(
      requested, fire, [&](std::uint32_t size) { return test_packet_arrives(socket, size); },
      parts_->setup.camera);
}

// ---- Running

void frame_stream::open(std::uint64_t frames) {
  parts_->health.read(parts_->before);
  parts_->receiver->start();
  parts_->queue.open(frames);
}

bool frame_stream::running() const {
  return parts_->queue.running();
}

void frame_stream::close() {
  if (!parts_->queue.close()) {
    return;
  }
  const std::scoped_lock lock(parts_->closing);
  parts_->receiver->stop();
  parts_->log_transfer();
}

void frame_stream::parts::log_transfer() const {
  camera_extension_health_record now{};
  health.read(now);
  const auto since = [&](std::uint64_t camera_extension_health_record::*figure) {
    return now.*figure - before.*figure;
  };
  using record = camera_extension_health_record;
  LOG(4,
      "stat: transfer of %s (whole:%" PRIu64 ", incomplete:%" PRIu64 ", missing:%" PRIu64 ", refused:%" PRIu64
      ", dropped:%" PRIu64 ")",
      setup.camera.c_str(), since(&record::frames_whole), since(&record::frames_incomplete),
      since(&record::frames_missing), since(&record::frames_refused), since(&record::frames_dropped));
  LOG(4,
      "stat: packets of %s (received:%" PRIu64 ", lost:%" PRIu64 ", asked-again:%" PRIu64
      ", received-again:%" PRIu64 ", duplicate:%" PRIu64 ", foreign:%" PRIu64 ", dropped-by-system:%" PRIu64
      ")",
      setup.camera.c_str(), since(&record::packets_received), since(&record::packets_lost),
      since(&record::packets_requested), since(&record::packets_received_again),
      since(&record::packets_duplicate), since(&record::packets_foreign), since(&record::kernel_drops));
}

void frame_stream::lose() {
  parts_->queue.lose();
}

void frame_stream::clear() {
  close();
  const std::scoped_lock lock(parts_->closing);
  parts_->receiver.reset();
  parts_->socket.reset();
  parts_->queue.hold({}, 0);
}

// ---- Frames

GEV_STATUS frame_stream::wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs) {
  const GEV_STATUS status = parts_->queue.wait(frame, timeoutMs);
  if (*frame != nullptr) {
    const GEV_BUFFER_OBJECT& taken = **frame;
    parts_->health.hand_over(taken.id, time_of(taken.timestamp, parts_->setup.ticksPerSecond));
  }
  return status;
}

GEV_STATUS frame_stream::release(const GEV_BUFFER_OBJECT* frame) {
  return parts_->queue.release(frame);
}

std::uint64_t frame_stream::arrivals() const {
  return parts_->health.arrivals();
}

void frame_stream::read_health(camera_extension_health_record& record) const {
  parts_->health.read(record);
}

}  // namespace gige
