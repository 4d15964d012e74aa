// Commands of a client, and what their answers say.
#ifndef TESTS_GVCAM_CLIENT_COMMANDS_H
#define TESTS_GVCAM_CLIENT_COMMANDS_H

#include <cstdint>
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

// The registers in the answer to a read.
inline std::vector<std::uint32_t> words_of(gige_protocol::byte_view answer) {
  const auto values = gige_protocol::parse_register_values(gige_protocol::parse_acknowledge(answer)->payload);
  std::vector<std::uint32_t> words;
  for (std::size_t at = 0; at < values->size(); ++at) {
    words.push_back((*values)[at]);
  }
  return words;
}

inline status status_of(gige_protocol::byte_view answer) {
  const auto head = gige_protocol::parse_acknowledge(answer);
  return head ? head->result : status::error;
}

}  // namespace gvcam_test

#endif
