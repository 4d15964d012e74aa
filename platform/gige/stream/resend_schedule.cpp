#include "platform/gige/stream/resend_schedule.h"

#include <algorithm>

namespace gige {
namespace {

// Ranges of missing packets that are waited for at a time; more than that are written off.
constexpr std::uint32_t mostWaits = 4096;

}  // namespace

resend_schedule::resend_schedule(std::uint32_t packetCount, std::uint32_t budget, packet_record& record,
                                 resend_timeout& timeout, frame_owner& owner)
    : budget_(budget),
      record_(record),
      timeout_(timeout),
      owner_(owner),
      waits_(std::min(packetCount, mostWaits)) {}

void resend_schedule::begin(std::uint64_t blockId, bool wanted) {
  blockId_ = blockId;
  budgetLeft_ = wanted ? budget_ : 0;
  waitCount_ = 0;
  timed_.reset();
}

std::uint32_t resend_schedule::miss(std::uint32_t first, std::uint32_t end, moment now) {
  std::uint32_t asked = 0;
  record_.for_missing_runs(first, end,
                           [&](std::uint32_t from, std::uint32_t to) { asked += await(from, to, now); });
  return asked;
}

std::uint32_t resend_schedule::probe(std::uint32_t first, std::uint32_t end) {
  std::uint32_t asked = 0;
  record_.for_missing_runs(first, end, [&](std::uint32_t from, std::uint32_t to) {
    asked += may_ask_for(to - from + 1) ? request(from, to) : 0;
  });
  return asked;
}

// Asks for packets that are all missing, where that may be, and waits for them.
std::uint32_t resend_schedule::await(std::uint32_t first, std::uint32_t last, moment now) {
  if (waitCount_ == waits_.size()) {
    record_.write_off(first, last);
    return 0;
  }
  const wait packets{first, last, now};
  waits_[(firstWait_ + waitCount_) % waits_.size()] = packets;
  ++waitCount_;
  if (!may_ask_for(last - first + 1)) {
    return 0;
  }
  if (!timed_ && !record_.was_requested(first)) {
    timed_ = packets;
  }
  return request(first, last);
}

bool resend_schedule::may_ask_for(std::uint32_t count) const {
  return count <= budgetLeft_ && record_.written_off() == 0;
}

std::uint32_t resend_schedule::request(std::uint32_t first, std::uint32_t last) {
  const std::uint32_t count = last - first + 1;
  record_.mark_requested(first, last);
  budgetLeft_ -= count;
  owner_.request({blockId_, first, last});
  return count;
}

void resend_schedule::arrived(std::uint32_t packet, moment now) {
  if (timed_ && timed_->first == packet) {
    timeout_.answered(now - timed_->since);
    timed_.reset();
  }
}

std::uint32_t resend_schedule::expire(moment now) {
  std::uint32_t asked = 0;
  // Those that are asked for again go to the end of the ring, with a deadline to come.
  while (waitCount_ > 0 && waits_[firstWait_].since + timeout_.value() <= now) {
    const wait late = pop_wait();
    asked += repeat(late, now);
  }
  return asked;
}

resend_schedule::wait resend_schedule::pop_wait() {
  const wait oldest = waits_[firstWait_];
  firstWait_ = (firstWait_ + 1) % waits_.size();
  --waitCount_;
  return oldest;
}

// Asks for what is still missing once more, or writes it off.
std::uint32_t resend_schedule::repeat(const wait& late, moment now) {
  std::uint32_t asked = 0;
  record_.for_missing_runs(late.first, late.last + 1, [&](std::uint32_t first, std::uint32_t last) {
    if (timed_ && timed_->first == first) {
      timeout_.unanswered();
      timed_.reset();
    }
    if (may_ask_for(last - first + 1)) {
      asked += await(first, last, now);
    } else {
      record_.write_off(first, last);
    }
  });
  return asked;
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
