#include "platform/gige/stream/receiving_thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstring>
#include <system_error>

#include "core/log.h"
#include "platform/gige/stream/packet_ring.h"
#include "platform/gige/stream/sockets.h"
#include "platform/gige/stream/udp_receiver.h"

namespace gige {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Firewalls forget a UDP stream after 30 seconds and more.
constexpr std::chrono::seconds firewallInterval(5);

// A socket's buffer takes memory only for what it holds, so it has room for the frames that arrive while the
// machine is busy with something else. A ring takes its memory at once.
constexpr std::uint64_t framesInSocket = 16;
constexpr std::uint64_t framesInRing = 4;
constexpr std::uint64_t leastBuffer = 4U << 20U;
constexpr std::uint64_t mostBuffer = 32U << 20U;

std::uint32_t buffer_for(const stream_setup& setup, std::uint64_t frames) {
  const std::uint64_t choice = std::clamp(frames * setup.payloadBytes, leastBuffer, mostBuffer);
  return setup.socketBufferBytes != 0 ? setup.socketBufferBytes : static_cast<std::uint32_t>(choice);
}

assembly_setup assembly_of(const stream_setup& setup) {
  return {.payloadBytes = setup.payloadBytes,
          .width = setup.width,
          .height = setup.height,
          .pixelFormat = setup.pixelFormat,
          .packetBytes = setup.packetBytes,
          .ids = setup.extendedIds ? gige_protocol::id_mode::extended : gige_protocol::id_mode::standard,
          .cameraResends = setup.cameraResends,
          .maxPacketResends = setup.maxPacketResends,
          .resendTimeout = milliseconds(setup.packetResendMs),
          .frameTimeout = milliseconds(setup.frameTimeoutMs)};
}

descriptor event() {
  descriptor made(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!made) {
    raise_socket_error("making an event");
  }
  return made;
}

std::uint32_t bytes_per_pixel(std::uint32_t format) {
  return (((format >> 16U) & 0xffU) + 7) / 8;
}

}  // namespace

// ---- Setting up

receiving_thread::receiving_thread(const stream_setup& setup, stream_socket& socket, frame_queue& queue,
                                   stream_health& health)
    : setup_(setup),
      socket_(socket),
      queue_(queue),
      health_(health),
      resends_(setup.ownAddress, setup.cameraAddress, assembly_of(setup).ids),
      assembler_(assembly_of(setup), *this),
      foreignSeen_(socket.foreign()),
      stopEvent_(event()) {
  make_receiver(assembly_of(setup));
  health_.carry_over();
}

receiving_thread::~receiving_thread() {
  stop();
}

void receiving_thread::make_receiver(const assembly_setup& setup) {
  if (setup_.transport != transport_choice::udp) {
    try {
      make_ring(setup);
      return;
    } catch (const std::system_error& refusal) {
      if (setup_.transport == transport_choice::packet_ring) {
        throw;
      }
      LOG(4, "done: %s is received over UDP (packet-ring:%s)", setup_.camera.c_str(), refusal.what());
    }
  }
  receiver_ = std::make_unique<udp_receiver>(socket_, setup);
  bufferRequested_ = buffer_for(setup_, framesInSocket);
  bufferGranted_ = socket_.request_buffer(bufferRequested_);
}

void receiving_thread::make_ring(const assembly_setup& setup) {
  const std::uint32_t bytes = buffer_for(setup_, framesInRing);
  auto ring = std::make_unique<packet_ring>(socket_, setup_.ownAddress, setup_.cameraAddress, bytes, setup);
  transport_ = camera_extension_packet_ring;
  bufferRequested_ = bytes;
  bufferGranted_ = ring->bytes();
  receiver_ = std::move(ring);
}

// ---- Running

void receiving_thread::start() {
  if (!socket_.set_source(setup_.sourcePort)) {
    raise_socket_error("finding a route to the camera");
  }
  assembler_.reset();
  refusalIsLogged_ = false;
  stopping_.store(false, std::memory_order_relaxed);
  receiver_->start();
  thread_ = std::thread([this] { run(); });
}

void receiving_thread::stop() {
  if (!thread_.joinable()) {
    return;
  }
  stopping_.store(true, std::memory_order_relaxed);
  eventfd_write(stopEvent_.get(), 1);
  thread_.join();
  eventfd_t none = 0;
  eventfd_read(stopEvent_.get(), &none);
  receiver_->stop();
  assembler_.reset();
  count();
}

void receiving_thread::run() {
  set_up_thread();
  for (moment firewallDue = steady_clock::now(); !stopping_.load(std::memory_order_relaxed);) {
    const moment now = steady_clock::now();
    if (now >= firewallDue) {
      socket_.open_firewall();
      firewallDue = now + firewallInterval;
    }
    const bool allTaken = receiver_->take(assembler_);
    assembler_.expire(steady_clock::now());
    count();
    if (allTaken) {
      receiver_->sleep(assembler_, std::min(firewallDue, assembler_.deadline().value_or(firewallDue)),
                       stopEvent_.get());
    }
  }
}

void receiving_thread::set_up_thread() const {
  pthread_setname_np(pthread_self(), "gige-stream");
  prctl(PR_SET_TIMERSLACK, 1);  // nanosecond: by default the system adds up to 50 microseconds to each nap
  if (setup_.threadAffinity != 0) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(setup_.threadAffinity - 1, &processors);
    if (const int error = pthread_setaffinity_np(pthread_self(), sizeof processors, &processors);
        error != 0) {
      LOG(2, "fail: receiving thread on processor %u (reason:%s)", setup_.threadAffinity - 1,
          std::strerror(error));
    }
  }
  if (setup_.threadPriority != 0) {
    sched_param priority{};
    priority.sched_priority = static_cast<int>(setup_.threadPriority);
    if (const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority); error != 0) {
      LOG(2, "fail: receiving thread with real-time priority %u (reason:%s)", setup_.threadPriority,
          std::strerror(error));
    }
  }
}

void receiving_thread::count() {
  const std::uint32_t foreign = socket_.foreign();
  foreign_ += foreign - foreignSeen_;
  foreignSeen_ = foreign;
  health_.count(assembler_.counters(), foreign_, receiver_->kernel_drops());
}

// ---- Frames

void receiving_thread::end(const ended_frame& frame) {
  if (frame.outcome == frame_outcome::refused && !std::exchange(refusalIsLogged_, true)) {
    LOG(2, "fail: frame of %s is refused (%s, found:%" PRIu64 ", expected:%" PRIu64 ")",
        setup_.camera.c_str(), frame.refusal.what, frame.refusal.found, frame.refusal.expected);
  }
  const bool whole = frame.outcome == frame_outcome::whole;
  if (!whole && frame.place != nullptr) {
    queue_.take_back(frame.place);
  }
  if (frame.outcome != frame_outcome::dropped) {
    queue_.deliver(buffer_object(frame));
  }
}

GEV_BUFFER_OBJECT receiving_thread::buffer_object(const ended_frame& frame) const {
  const bool whole = frame.outcome == frame_outcome::whole;
  GEV_BUFFER_OBJECT to{};
  to.status = whole ? GEVLIB_OK : GEVLIB_ERROR_FRAME_INCOMPLETE;
  to.timestamp = frame.timestamp;
  to.timestamp_hi = static_cast<std::uint32_t>(frame.timestamp >> 32U);
  to.timestamp_lo = static_cast<std::uint32_t>(frame.timestamp);
  to.id = frame.id;
  if (whole) {
    to.recv_size = static_cast<std::uint32_t>(frame.bytes);
    to.w = setup_.width;
    to.h = setup_.height;
    to.d = bytes_per_pixel(setup_.pixelFormat);
    to.format = setup_.pixelFormat;
    to.address = frame.place;
  }
  return to;
}

}  // namespace gige
