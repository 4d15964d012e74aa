#include "platform/gige_protocol/status.h"

#include "platform/gige_protocol/names.h"

namespace gige_protocol {
namespace {

constexpr named<status> texts[] = {
    {status::success, "success"},
    {status::packet_resend, "packet sent again"},
    {status::not_implemented, "not implemented"},
    {status::invalid_parameter, "invalid parameter"},
    {status::invalid_address, "invalid address"},
    {status::write_protect, "write protected"},
    {status::bad_alignment, "bad alignment"},
    {status::access_denied, "access denied"},
    {status::busy, "busy"},
    {status::local_problem, "local problem"},
    {status::message_mismatch, "message mismatch"},
    {status::invalid_protocol, "invalid protocol"},
    {status::no_message, "no message"},
    {status::packet_unavailable, "packet unavailable"},
    {status::data_overrun, "data overrun"},
    {status::invalid_header, "invalid header"},
    {status::wrong_configuration, "wrong configuration"},
    {status::packet_not_yet_available, "packet not yet available"},
    {status::packet_and_previous_removed, "packet and all before it removed from memory"},
    {status::packet_removed, "packet removed from memory"},
    {status::no_reference_time, "no reference time"},
    {status::packet_temporarily_unavailable, "packet temporarily unavailable"},
    {status::overflow, "overflow"},
    {status::action_late, "action too late"},
    {status::leader_trailer_overflow, "leader or trailer too large"},
    {status::error, "unspecified error"},
};

}  // namespace

const char* text_of(status code) {
  return look_up(texts, code, "unknown status");
}

}  // namespace gige_protocol
