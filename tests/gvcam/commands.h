// What a client sends, as it is written in tests.
#ifndef TESTS_GVCAM_COMMANDS_H
#define TESTS_GVCAM_COMMANDS_H

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gvcam/registers.h"

namespace gvcam_test {

using gige_protocol::message;
using gige_protocol::status;
namespace standard = gige_protocol::registers;

constexpr std::uint32_t controlAccess = gige_protocol::control_privilege::control;

inline message write_word(std::uint16_t id, std::uint32_t address, std::uint32_t value) {
  const gige_protocol::register_write one{address, value};
  return gige_protocol::make_write_registers(id, {&one, 1});
}

inline message read_word(std::uint16_t id, std::uint32_t address) {
  return gige_protocol::make_read_registers(id, {&address, 1});
}

// The one register of the answer to `read_word`.
inline std::uint32_t word_of(gige_protocol::byte_view answer) {
  const auto head = gige_protocol::parse_acknowledge(answer);
  const auto values = head ? gige_protocol::parse_register_values(head->payload) : gige_protocol::refusal{""};
  return values && values->size() == 1 ? (*values)[0] : 0xdead'dead;
}

inline status status_of(gige_protocol::byte_view answer) {
  const auto head = gige_protocol::parse_acknowledge(answer);
  return head ? head->result : status::error;
}
inline status status_of(const message& answer) {
  return status_of(answer.view());
}

}  // namespace gvcam_test

#endif
