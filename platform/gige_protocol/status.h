// The status codes of GigE Vision: a camera's answer to a command, and the state of a stream packet.
#ifndef PLATFORM_GIGE_PROTOCOL_STATUS_H
#define PLATFORM_GIGE_PROTOCOL_STATUS_H

#include <cstdint>

namespace gige_protocol {

// Any 16-bit number may come from the wire; these are the ones that have a meaning.
enum class status : std::uint16_t {
  success = 0x0000,
  packet_resend = 0x0100,  // a stream packet that was sent again on request
  not_implemented = 0x8001,
  invalid_parameter = 0x8002,
  invalid_address = 0x8003,
  write_protect = 0x8004,
  bad_alignment = 0x8005,
  access_denied = 0x8006,
  busy = 0x8007,
  local_problem = 0x8008,
  message_mismatch = 0x8009,
  invalid_protocol = 0x800a,
  no_message = 0x800b,
  packet_unavailable = 0x800c,
  data_overrun = 0x800d,
  invalid_header = 0x800e,
  wrong_configuration = 0x800f,
  packet_not_yet_available = 0x8010,
  packet_and_previous_removed = 0x8011,
  packet_removed = 0x8012,
  no_reference_time = 0x8013,
  packet_temporarily_unavailable = 0x8014,
  overflow = 0x8015,
  action_late = 0x8016,
  leader_trailer_overflow = 0x8017,
  error = 0x8fff,
};

// True for all that are no success: their highest bit is set.
constexpr bool is_error(status code) {
  return (static_cast<std::uint16_t>(code) & 0x8000U) != 0;
}

// How a camera answers a resend request for a packet that it does not have.
constexpr bool is_gone(status code) {  // for good
  return code == status::packet_unavailable || code == status::packet_and_previous_removed ||
         code == status::packet_removed;
}
constexpr bool is_late(status code) {  // for now; a later request may succeed
  return code == status::packet_not_yet_available || code == status::packet_temporarily_unavailable;
}

// In words, as "access denied"; "unknown status" for a number without a meaning. Never nullptr.
const char* text_of(status code);

}  // namespace gige_protocol

#endif
