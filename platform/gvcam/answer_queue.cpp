#include "platform/gvcam/answer_queue.h"

#include <algorithm>

namespace gvcam {
namespace {

using gige_protocol::byte_view;
using gige_protocol::command_code;
using gige_protocol::message;

constexpr std::size_t mostWaiting = 1000;
constexpr camera_time pendingPeriod = std::chrono::milliseconds(500);
constexpr std::uint16_t pendingMs = 1000;  // the time that a PENDING_ACK asks the client to wait

// Whether a command reads or writes a byte from `first` to `last`.
bool touches(const gige_protocol::command& request, register_address first, register_address last) {
  const auto meet = [&](register_address at, std::size_t size) { return at <= last && at + size > first; };
  bool met = false;
  if (request.code == command_code::read_register) {
    const auto list = gige_protocol::parse_read_registers(request.payload);
    for (std::size_t at = 0; list && at < list->size(); ++at) {
      met |= meet((*list)[at], wordSize);
    }
  } else if (request.code == command_code::write_register) {
    const auto list = gige_protocol::parse_write_registers(request.payload);
    for (std::size_t at = 0; list && at < list->size(); ++at) {
      met |= meet((*list)[at].address, wordSize);
    }
  } else if (request.code == command_code::read_memory) {
    const auto range = gige_protocol::parse_read_memory(request.payload);
    met = range && meet(range->address, range->count);
  } else if (request.code == command_code::write_memory) {
    const auto block = gige_protocol::parse_write_memory(request.payload);
    met = block && meet(block->address, block->bytes.size());
  }
  return met;
}

}  // namespace

void answer_queue::put(const endpoint& to, byte_view command, const message& answer,
                       const control_faults& faults, camera_time now) {
  if (waiting_.size() >= mostWaiting) {
    return;
  }
  const auto request = gige_protocol::parse_command(command);
  waiting each{{to, faults.isGarbage ? random_bytes(answer.size()) : answer},
               request ? request->id : std::uint16_t{0},
               now,
               {}};
  if (request && (faults.stallsAll || touches(*request, faults.stallFirst, faults.stallLast))) {
    each.due += faults.stall;
    each.pendingDue = faults.saysPending ? std::optional(now) : std::nullopt;
  }
  waiting_.push_back(each);
}

std::vector<answer_queue::datagram> answer_queue::take_due(camera_time now) {
  std::vector<datagram> due;
  for (waiting& each : waiting_) {
    if (each.due <= now) {
      due.push_back(each.answer);
    } else if (each.pendingDue && *each.pendingDue <= now) {
      due.push_back({each.answer.to, gige_protocol::make_pending(each.id, pendingMs)});
      each.pendingDue = now + pendingPeriod;
    }
  }
  std::erase_if(waiting_, [now](const waiting& each) { return each.due <= now; });
  return due;
}

std::optional<camera_time> answer_queue::next_due() const {
  std::optional<camera_time> next;
  for (const waiting& each : waiting_) {
    const camera_time due = each.pendingDue ? std::min(each.due, *each.pendingDue) : each.due;
    next = next ? std::min(*next, due) : due;
  }
  return next;
}

message answer_queue::random_bytes(std::size_t size) {
  message result;
  for (std::size_t byte = 0; byte < size; ++byte) {
    result.put(static_cast<std::uint8_t>(random_() >> 8U));
  }
  return result;
}

}  // namespace gvcam
