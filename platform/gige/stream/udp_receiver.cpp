#include "platform/gige/stream/udp_receiver.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace gige {
namespace {

using std::chrono::steady_clock;

std::uint32_t packets_per_frame(const assembly_setup& setup) {
  return lay_out(setup).trailer() + 1;
}

}  // namespace

udp_receiver::udp_receiver(stream_socket& socket, const assembly_setup& setup)
    : socket_(socket), planner_(packets_per_frame(setup)) {
  const std::size_t header = gige_protocol::header_size(setup.ids);
  const std::size_t body = lay_out(setup).bytesPerPacket;
  spill_.resize(batch * body);
  for (std::size_t at = 0; at < batch; ++at) {
    pieces_[at][0] = {headers_[at].data(), header};
    pieces_[at][1].iov_len = body;
    messages_[at].msg_hdr.msg_iov = pieces_[at].data();
    messages_[at].msg_hdr.msg_iovlen = pieces_[at].size();
  }
}

void udp_receiver::start() {
  socket_.discard();
  dropsSeen_ = socket_.buffer().drops;
  drops_ = 0;
  seen_ = {};
}

void udp_receiver::look_at_buffer() {
  const auto buffer = socket_.buffer();
  drops_ += buffer.drops - dropsSeen_;
  dropsSeen_ = buffer.drops;
  seen_.fill = buffer.fill;
}

bool udp_receiver::take(frame_assembler& into) {
  constexpr std::uint32_t most = 16 * batch;
  socket_.learn_source();
  if (seen_.packets == 0) {
    seen_.woke = steady_clock::now().time_since_epoch();
    look_at_buffer();
  }
  for (std::uint32_t taken = 0; taken < most;) {
    const std::size_t room = into.predict(places_);
    const std::size_t received = receive(into, room);
    taken += static_cast<std::uint32_t>(received);
    seen_.packets += static_cast<std::uint32_t>(received);
    if (received < room) {
      return true;
    }
  }
  return false;
}

std::size_t udp_receiver::receive(frame_assembler& into, std::size_t most) {
  const std::size_t body = into.largest_body();
  for (std::size_t at = 0; at < most; ++at) {
    pieces_[at][1].iov_base = places_[at] != nullptr ? places_[at] : spill_.data() + at * body;
  }
  // An error means that no packet waits, or that the camera's host refused an earlier packet of ours (ICMP).
  const int got = recvmmsg(socket_.get(), messages_.data(), static_cast<unsigned>(most),
                           MSG_DONTWAIT | MSG_TRUNC, nullptr);
  const auto received = static_cast<std::size_t>(std::max(got, 0));
  for (std::size_t at = 0; at < received; ++at) {
    datagrams_[at] = {headers_[at].data(), static_cast<std::uint8_t*>(pieces_[at][1].iov_base),
                      messages_[at].msg_len};
  }
  into.accept(std::span(datagrams_).first(received), steady_clock::now());
  return received;
}

// True from a request until no frame is in progress.
bool udp_receiver::awaits_resends(frame_assembler& into) {
  const std::uint64_t requested = into.counters().packetsRequested;
  if (!into.deadline()) {
    requestedBefore_ = requested;
  }
  return requested != requestedBefore_;
}

void udp_receiver::sleep(frame_assembler& into, moment latest, int wake) {
  seen_.now = steady_clock::now().time_since_epoch();
  seen_.missing = into.packets_to_come();
  seen_.frameEnded = seen_.packets > 0 && seen_.missing == 0;
  seen_.awaiting = awaits_resends(into);
  if (seen_.packets > 0) {
    seen_.newest = socket_.last_arrival().time_since_epoch();
  }
  const nap_planner::plan plan = planner_.next(seen_);
  seen_ = {};

  const moment end = plan.untilPacket ? latest : std::min(latest, steady_clock::now() + plan.sleep);
  std::array<pollfd, 2> events{{{wake, POLLIN, 0}, {socket_.get(), POLLIN, 0}}};
  const timespec time = time_until(end);
  ppoll(events.data(), plan.untilPacket ? 2 : 1, &time, nullptr);
}

}  // namespace gige
