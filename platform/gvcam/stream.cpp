#include "platform/gvcam/stream.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

namespace gvcam {
namespace {

using gige_protocol::resend_request;
using gige_protocol::status;
using std::chrono::nanoseconds;

// The latest frames are kept, up to both of these.
constexpr std::size_t mostFramesKept = 16;
constexpr std::size_t mostBytesKept = std::size_t{64} << 20U;

constexpr nanoseconds triggerPeriod = std::chrono::milliseconds(50);  // between looks at TriggerMode

nanoseconds clock_now() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

bool has_receiver(const stream_state& now) {
  return now.settings.destination.port != 0;
}

}  // namespace

stream::stream(std::uint32_t ip, sensor source, packet_spacing spacing, state_reader read)
    : socket_(endpoint{ip, 0}),
      sensor_(std::move(source)),
      spacing_(spacing),
      read_state_(std::move(read)),
      thread_([this] { run(); }) {}

stream::~stream() {
  {
    const std::scoped_lock lock(mutex_);
    isEnding_ = true;
    isRunning_ = false;
  }
  wake_.notify_one();
  thread_.join();
}

void stream::start() {
  const std::scoped_lock lock(mutex_);
  isRunning_ = true;
  ++acquisition_;
  triggers_ = 0;
  frames_.clear();
  wake_.notify_one();
}

void stream::stop() {
  std::unique_lock lock(mutex_);
  isRunning_ = false;
  wake_.notify_one();
  idle_.wait(lock, [this] { return !isSending_; });
}

void stream::trigger(unsigned count) {
  const std::scoped_lock lock(mutex_);
  triggers_ += count;
  wake_.notify_one();
}

void stream::send_test_packet() {
  const stream_state now = read_state_();
  if (!has_receiver(now)) {
    return;
  }
  std::array<std::uint8_t, gige_protocol::extendedHeaderSize> head{};
  const std::size_t headSize = gige_protocol::store_packet_header({.ids = now.settings.ids}, head);
  std::vector<std::uint8_t> packet(now.settings.packetSize - gige_protocol::ipHeaderSize -
                                   gige_protocol::udpHeaderSize);
  std::copy_n(head.begin(), headSize, packet.begin());
  socket_.allow_fragments(now.settings.mayFragment);
  socket_.send(now.settings.destination, packet);
}

void stream::send_again(const resend_request& request) {
  const stream_state now = read_state_();
  if (!has_receiver(now) || now.faults.ignoresResends) {
    return;
  }
  const frame_pointer wanted = kept(request.blockId);
  const std::uint32_t end = wanted ? wanted->packet_count() : request.firstPacket + 1;
  std::vector<frame_packet> packets;
  for (std::uint32_t id = request.firstPacket; id < end && id <= request.lastPacket; ++id) {
    const resend_fate fate = fate_of_resend(now.faults, request.blockId, id, ++attempts_);
    if (fate == resend_fate::refused || !wanted) {
      packets.push_back(unavailable_packet(request, id, status::packet_unavailable));
    } else if (fate == resend_fate::sent) {
      packets.push_back(wanted->packet_again(id));
    }
  }
  socket_.send(now.settings.destination, packets);
}

// ---- In the stream's thread

void stream::run() {
  std::unique_lock lock(mutex_);
  while (!isEnding_) {
    if (isRunning_) {
      acquire(lock);
    } else {
      wake_.wait(lock);
    }
  }
}

void stream::acquire(std::unique_lock<std::mutex>& lock) {
  const std::uint64_t acquisition = acquisition_;
  const stream_state first = read_state_();
  frame_pacer pace(clock_now() + first.settings.exposure());
  for (std::uint64_t id = 1; wait_for_frame(lock, acquisition, pace);
       id = gige_protocol::next_block_id(id, first.settings.ids)) {
    isSending_ = true;
    lock.unlock();
    const stream_state now = read_state_();
    const nanoseconds begun = clock_now();
    if (has_receiver(now)) {
      expose_and_send(now, id);
    }
    pace.sent(begun, clock_now(), now.settings.interval);
    lock.lock();
    isSending_ = false;
    idle_.notify_one();
  }
}

// Waits until the next frame is due. False when that acquisition has ended.
bool stream::wait_for_frame(std::unique_lock<std::mutex>& lock, std::uint64_t acquisition,
                            const frame_pacer& pace) {
  while (isRunning_ && acquisition_ == acquisition) {
    if (read_state_().settings.isTriggered) {
      if (triggers_ > 0) {
        --triggers_;
        return true;
      }
      wake_.wait_for(lock, triggerPeriod);
    } else {
      triggers_ = 0;
      if (clock_now() >= pace.next()) {
        return true;
      }
      wake_.wait_until(lock, clock::time_point(pace.next()));
    }
  }
  return false;
}

void stream::expose_and_send(const stream_state& now, std::uint64_t blockId) {
  const auto timestamp = static_cast<std::uint64_t>(nanoseconds(clock::now() - now.clockStart).count());
  const auto made =
      std::make_shared<const frame>(now.settings, blockId, timestamp, sensor_.expose(now.settings, blockId));
  keep(made);
  socket_.allow_fragments(now.settings.mayFragment);
  send(now, *made);
}

void stream::keep(const frame_pointer& made) {
  const std::scoped_lock lock(mutex_);
  frames_.push_back(made);
  while (frames_.size() > std::clamp<std::size_t>(mostBytesKept / made->size(), 1, mostFramesKept)) {
    frames_.pop_front();
  }
}

stream::frame_pointer stream::kept(std::uint64_t blockId) {
  const std::scoped_lock lock(mutex_);
  const auto found = std::ranges::find(frames_, blockId, &frame::block_id);
  return found == frames_.end() ? nullptr : *found;
}

void stream::send(const stream_state& now, const frame& made) {
  const nanoseconds interval = spacing_.interval(now.settings.packetSize, now.settings.packetDelay);
  const std::size_t atOnce = packet_spacing::packets_at_once(interval);
  const std::vector<std::uint32_t> order = sending_order(now.faults, made.block_id(), made.packet_count());
  const clock::time_point begun = clock::now();
  std::vector<frame_packet> packets;
  packets.reserve(atOnce);
  for (std::size_t at = 0; at < order.size(); at += packets.size()) {
    wait_until(begun + at * interval);
    packets.clear();
    for (const std::uint32_t id : std::span(order).subspan(at).first(std::min(atOnce, order.size() - at))) {
      packets.push_back(made.packet(id));
    }
    socket_.send(now.settings.destination, packets);
  }
}

// Returns early when the acquisition ends, because `stop` waits for the rest of the frame.
void stream::wait_until(clock::time_point when) {
  if (clock::now() < when) {
    std::unique_lock lock(mutex_);
    wake_.wait_until(lock, when, [this] { return !isRunning_; });
  }
}

}  // namespace gvcam
