#include "tests/gige_protocol/rewrite.h"

#include "platform/gige_protocol/gvcp.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige_protocol {
namespace {

byte_vector to_vector(byte_view bytes) {
  return {bytes.begin(), bytes.end()};
}

// Either what `write` makes of the value, or the refusal.
template <class value_type, class writer>
parsed<byte_vector> rewritten(const parsed<value_type>& value, const writer& write) {
  if (!value) {
    return refusal{value.reason()};
  }
  return to_vector(write(*value).view());
}

template <class list>
auto items(const list& from) {
  std::vector<decltype(from[0])> result;
  for (std::size_t place = 0; place < from.size(); ++place) {
    result.push_back(from[place]);
  }
  return result;
}

}  // namespace

parsed<byte_vector> rewrite_command(byte_view bytes) {
  const auto head = parse_command(bytes);
  if (!head) {
    return refusal{head.reason()};
  }
  const std::uint16_t id = head->id;
  const byte_view payload = head->payload;
  const bool broadcast = (head->flags & command_flags::broadcastAcknowledge) != 0;
  switch (head->code) {
    case command_code::discovery:
      return to_vector(make_discovery(id, broadcast).view());
    case command_code::force_ip:
      return rewritten(parse_force_ip(payload),
                       [&](const auto& address) { return make_force_ip(id, address, broadcast); });
    case command_code::packet_resend:
      return rewritten(parse_packet_resend(*head),
                       [&](const auto& request) { return make_packet_resend(id, request); });
    case command_code::read_register:
      return rewritten(parse_read_registers(payload),
                       [&](const auto& list) { return make_read_registers(id, items(list)); });
    case command_code::write_register:
      return rewritten(parse_write_registers(payload),
                       [&](const auto& list) { return make_write_registers(id, items(list)); });
    case command_code::read_memory:
      return rewritten(parse_read_memory(payload),
                       [&](const auto& range) { return make_read_memory(id, range); });
    case command_code::write_memory:
      return rewritten(parse_write_memory(payload),
                       [&](const auto& block) { return make_write_memory(id, block); });
    default:
      return refusal{name_of(head->code)};
  }
}

parsed<byte_vector> rewrite_acknowledge(byte_view bytes) {
  const auto head = parse_acknowledge(bytes);
  if (!head) {
    return refusal{head.reason()};
  }
  const std::uint16_t id = head->id;
  const byte_view payload = head->payload;
  if (payload.empty()) {
    return to_vector(make_acknowledge(head->code, id, head->result).view());
  }
  switch (head->code) {
    case acknowledge_code::discovery:
      return rewritten(parse_discovery(payload),
                       [&](const auto& record) { return make_discovery_acknowledge(id, record); });
    case acknowledge_code::read_register:
      return rewritten(parse_register_values(payload),
                       [&](const auto& list) { return make_register_values(id, items(list), head->result); });
    case acknowledge_code::read_memory:
      return rewritten(parse_memory(payload), [&](const auto& block) { return make_memory(id, block); });
    case acknowledge_code::write_register:
    case acknowledge_code::write_memory:
      return rewritten(parse_written(payload), [&](std::uint16_t count) {
        return make_written(head->code, id, count, head->result);
      });
    case acknowledge_code::pending:
      return rewritten(parse_pending(payload), [&](std::uint16_t time) { return make_pending(id, time); });
    default:
      return refusal{"an acknowledge that has no payload"};
  }
}

parsed<byte_vector> rewrite_packet(byte_view bytes) {
  const auto head = parse_packet_head(bytes);
  if (!head) {
    return refusal{head.reason()};
  }
  const byte_view body = bytes.subspan(head->size());
  if (head->format == packet_format::leader && !is_error(head->state)) {
    return rewritten(parse_leader(body), [&](const auto& value) { return make_leader(*head, value); });
  }
  if (head->format == packet_format::trailer && !is_error(head->state)) {
    return rewritten(parse_trailer(body), [&](const auto& value) { return make_trailer(*head, value); });
  }
  byte_vector result(extendedHeadSize);
  result.resize(store_packet_head(*head, std::span<std::uint8_t, extendedHeadSize>(result)));
  result.insert(result.end(), body.begin(), body.end());
  return result;
}

}  // namespace gige_protocol
