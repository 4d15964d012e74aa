#include "platform/gige/stream/resend_schedule.h"

#include <algorithm>

namespace gige {
namespace {

// Runs of missing packets that are awaited at a time. Further ones are written off.
constexpr std::uint32_t mostWaits = 4096;

}  // namespace

resend_schedule::resend_schedule(std::uint32_t packetCount, std::uint32_t budget, packet_record& record,
                                 resend_timeout& timeout, frame_owner& owner, std::uint64_t& requestCount)
    : budget_(budget),
      record_(record),
      timeout_(timeout),
      owner_(owner),
      requestCount_(requestCount),
      waits_(std::min(packetCount, mostWaits)) {}

void resend_schedule::begin(std::uint64_t blockId, bool wanted) {
  blockId_ = blockId;
  budgetLeft_ = wanted ? budget_ : 0;
  waitCount_ = 0;
  timed_.reset();
}

void resend_schedule::request_missing(std::uint32_t first, std::uint32_t end, moment now) {
  record_.for_missing_runs(first, end, [&](std::uint32_t from, std::uint32_t to) { await({from, to, now}); });
}

void resend_schedule::probe(std::uint32_t first, std::uint32_t end) {
  record_.for_missing_runs(first, end, [&](std::uint32_t from, std::uint32_t to) {
    if (may_request(from, to)) {
      request(from, to);
    }
  });
}

// Requests packets that are all missing, if that is allowed, and awaits them.
void resend_schedule::await(const wait& packets) {
  if (waitCount_ == waits_.size()) {
    record_.write_off(packets.first, packets.last);
    return;
  }
  waits_[(firstWait_ + waitCount_) % waits_.size()] = packets;
  ++waitCount_;
  if (!may_request(packets.first, packets.last)) {
    return;
  }
  if (!timed_ && !record_.was_requested(packets.first)) {
    timed_ = packets;
  }
  request(packets.first, packets.last);
}

bool resend_schedule::may_request(std::uint32_t first, std::uint32_t last) const {
  return last - first < budgetLeft_ && record_.written_off() == 0;
}

void resend_schedule::request(std::uint32_t first, std::uint32_t last) {
  const std::uint32_t count = last - first + 1;
  record_.mark_requested(first, last);
  budgetLeft_ -= count;
  requestCount_ += count;
  owner_.request({blockId_, first, last});
}

void resend_schedule::arrived(std::uint32_t packet, moment now) {
  if (timed_ && timed_->first == packet) {
    timeout_.answered(now - timed_->since);
    timed_.reset();
  }
}

// What is requested again goes to the end of the ring, with a deadline to come.
void resend_schedule::expire(moment now) {
  while (waitCount_ > 0 && waits_[firstWait_].since + timeout_.value() <= now) {
    repeat(pop_wait(), now);
  }
}

resend_schedule::wait resend_schedule::pop_wait() {
  const wait oldest = waits_[firstWait_];
  firstWait_ = (firstWait_ + 1) % waits_.size();
  --waitCount_;
  return oldest;
}

// Requests what is still missing once more, or writes it off.
void resend_schedule::repeat(const wait& late, moment now) {
  record_.for_missing_runs(late.first, late.last + 1, [&](std::uint32_t first, std::uint32_t last) {
    if (timed_ && timed_->first == first) {
      timeout_.unanswered();
      timed_.reset();
    }
    if (may_request(first, last)) {
      await({first, last, now});
    } else {
      record_.write_off(first, last);
    }
  });
}

std::optional<moment> resend_schedule::deadline() {
  while (waitCount_ > 0) {
    const wait& oldest = waits_[firstWait_];
    if (record_.next_missing(oldest.first, oldest.last + 1) <= oldest.last) {
      return oldest.since + timeout_.value();
    }
    pop_wait();
  }
  return std::nullopt;
}

}  // namespace gige
