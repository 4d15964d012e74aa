#include "tests/gige_protocol/samples.h"

#include <array>

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
  const auto header = parse_command(bytes);
  if (!header) {
    return refusal{header.reason()};
  }
  const std::uint16_t id = header->id;
  const byte_view payload = header->payload;
  const bool broadcast = (header->flags & command_flags::broadcastAcknowledge) != 0;
  switch (header->code) {
    case command_code::discovery:
      return to_vector(make_discovery(id, broadcast).view());
    case command_code::force_ip:
      return rewritten(parse_force_ip(payload), [&](auto& of) { return make_force_ip(id, of, broadcast); });
    case command_code::packet_resend:
      return rewritten(parse_packet_resend(*header), [&](auto& of) { return make_packet_resend(id, of); });
    case command_code::read_register:
      return rewritten(parse_read_registers(payload),
                       [&](auto& of) { return make_read_registers(id, items(of)); });
    case command_code::write_register:
      return rewritten(parse_write_registers(payload),
                       [&](auto& of) { return make_write_registers(id, items(of)); });
    case command_code::read_memory:
      return rewritten(parse_read_memory(payload), [&](auto& of) { return make_read_memory(id, of); });
    case command_code::write_memory:
      return rewritten(parse_write_memory(payload), [&](auto& of) { return make_write_memory(id, of); });
    default:
      return refusal{name_of(header->code)};
  }
}

parsed<byte_vector> rewrite_acknowledge(byte_view bytes) {
  const auto header = parse_acknowledge(bytes);
  if (!header) {
    return refusal{header.reason()};
  }
  const std::uint16_t id = header->id;
  const byte_view payload = header->payload;
  if (payload.empty()) {
    return to_vector(make_acknowledge(header->code, id, header->result).view());
  }
  switch (header->code) {
    case acknowledge_code::discovery:
      return rewritten(parse_discovery(payload),
                       [&](auto& of) { return make_discovery_acknowledge(id, of); });
    case acknowledge_code::read_register:
      return rewritten(parse_register_values(payload),
                       [&](auto& of) { return make_register_values(id, items(of), header->result); });
    case acknowledge_code::read_memory:
      return rewritten(parse_memory(payload), [&](auto& of) { return make_memory(id, of); });
    case acknowledge_code::write_register:
    case acknowledge_code::write_memory:
      return rewritten(parse_written(payload),
                       [&](auto of) { return make_written(header->code, id, of, header->result); });
    case acknowledge_code::pending:
      return rewritten(parse_pending(payload), [&](auto of) { return make_pending(id, of); });
    default:
      return refusal{"an acknowledge that has no payload"};
  }
}

parsed<byte_vector> rewrite_packet(byte_view bytes) {
  const auto header = parse_packet_header(bytes);
  if (!header) {
    return refusal{header.reason()};
  }
  const byte_view body = bytes.subspan(header->size());
  if (header->format == packet_format::leader && !is_error(header->state)) {
    return rewritten(parse_leader(body), [&](auto& of) { return make_leader(*header, of); });
  }
  if (header->format == packet_format::trailer && !is_error(header->state)) {
    return rewritten(parse_trailer(body), [&](auto& of) { return make_trailer(*header, of); });
  }
  byte_vector result(extendedHeaderSize);
  result.resize(store_packet_header(*header, std::span<std::uint8_t, extendedHeaderSize>(result)));
  result.insert(result.end(), body.begin(), body.end());
  return result;
}

namespace {

constexpr std::uint64_t largeBlock = 0x1122'3344'5566'7788;
constexpr std::array<std::uint8_t, 4> memory = {0xde, 0xad, 0xbe, 0xef};

const discovery_record record{
    .versionMajor = 2,
    .versionMinor = 1,
    .deviceMode = device_mode::bigEndian | device_mode::utf8,
    .mac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55},
    .supportedIpConfiguration = ip_configuration::linkLocal | ip_configuration::dhcp,
    .currentIpConfiguration = ip_configuration::dhcp,
    .ip = 0x0a01'0203,
    .subnetMask = 0xffff'0000,
    .gateway = 0x0a01'0001,
    .manufacturer{"Zavik"},
    .model{"GV-1"},
    .deviceVersion{"1.2"},
    .manufacturerInfo{"an emulated camera"},
    .serial{"0123456789abcde"},
    .userName{"left"}};

const image_geometry geometry{.pixelFormat = 0x0108'0001,
                              .width = 1280,
                              .height = 1024,
                              .offsetX = 3,
                              .offsetY = 4,
                              .paddingX = 5,
                              .paddingY = 6};

constexpr packet_header standard_head(std::uint32_t packetId) {
  return {.blockId = 0xfffe, .packetId = packetId};
}
constexpr packet_header extended_head(std::uint32_t packetId) {
  return {
      .flags = packet_flags::resent, .ids = id_mode::extended, .blockId = largeBlock, .packetId = packetId};
}

template <std::size_t capacity>
sample of(rewriter rewrite, const byte_buffer<capacity>& built, const char* filter) {
  return {rewrite, byte_vector(built.view().begin(), built.view().end()), filter};
}

sample of(const packet_header& header, const char* filter) {
  byte_vector bytes(extendedHeaderSize);
  bytes.resize(store_packet_header(header, std::span<std::uint8_t, extendedHeaderSize>(bytes)));
  return {rewrite_packet, bytes, filter};
}

}  // namespace

std::vector<sample> every_message() {
  using namespace registers;
  constexpr auto addresses = std::array{heartbeatTimeout, controlChannelPrivilege};
  constexpr auto values = std::array{3000U, control_privilege::control};
  constexpr auto writes =
      std::array{register_write{.address = heartbeatTimeout, .value = 1000},
                 register_write{.address = controlChannelPrivilege, .value = control_privilege::control}};
  return {
      of(rewrite_command, make_discovery(1, true),
         "gvcp.cmd.command==0x02 && gvcp.cmd.flag.allowbroadcastacq==1 && gvcp.cmd.req_id==1"),
      of(rewrite_acknowledge, make_discovery_acknowledge(1, record),
         "gvcp.ack==0x03 && gvcp.bootstrap.specversion.major==2 && gvcp.bootstrap.specversion.minor==1 && "
         "gvcp.bootstrap.devicemode.endianness==1 && gvcp.cmd.discovery.devicemacaddress==02:11:22:33:44:55 "
         "&& gvcp.bootstrap.currentip==10.1.2.3 && gvcp.bootstrap.currentsubnetmask==255.255.0.0 && "
         "gvcp.bootstrap.currentdefaultgateway==10.1.0.1 && gvcp.bootstrap.manufacturername==\"Zavik\" && "
         "gvcp.bootstrap.modelname==\"GV-1\" && gvcp.bootstrap.deviceversion==\"1.2\" && "
         "gvcp.bootstrap.manufacturerspecificinfo==\"an emulated camera\" && "
         "gvcp.bootstrap.serialnumber==\"0123456789abcde\" && gvcp.bootstrap.userdefinedname==\"left\""),
      of(rewrite_command,
         make_force_ip(2, {.mac = record.mac, .ip = 0x0a01'0204, .subnetMask = 0xff00'0000, .gateway = 1},
                       true),
         "gvcp.cmd.command==0x04 && gvcp.cmd.forceip.macaddress==02:11:22:33:44:55 && "
         "gvcp.cmd.forceip.ip==10.1.2.4 && gvcp.cmd.forceip.subnetmask==255.0.0.0 && "
         "gvcp.cmd.forceip.defaultgateway==0.0.0.1"),
      of(rewrite_acknowledge, make_acknowledge(acknowledge_code::force_ip, 2, status::success),
         "gvcp.ack==0x05 && gvcp.cmd.status==0"),
      of(rewrite_command, make_read_registers(3, addresses),
         "gvcp.cmd.command==0x80 && gvcp.cmd.flag.acq_required==1 && gvcp.cmd.payloadlength==8 && "
         "gvcp.cmd.readreg.bootstrapregister==0x938 && gvcp.cmd.readreg.bootstrapregister==0xa00"),
      of(rewrite_acknowledge, make_register_values(3, values),
         "gvcp.ack==0x81 && gvcp.bootstrap.custom.register.value==3000 && "
         "gvcp.bootstrap.custom.register.value==2"),
      of(rewrite_command, make_write_registers(4, writes),
         "gvcp.cmd.command==0x82 && gvcp.cmd.writereg.bootstrapregister==0x938 && "
         "gvcp.bootstrap.heartbeattimeout==1000 && gvcp.cmd.writereg.bootstrapregister==0xa00"),
      of(rewrite_acknowledge, make_written(acknowledge_code::write_register, 4, 1, status::access_denied),
         "gvcp.ack==0x83 && gvcp.cmd.status==0x8006 && gvcp.cmd.writereg.dataindex==1"),
      of(rewrite_command, make_read_memory(5, {.address = 0xc000, .count = 4}),
         "gvcp.cmd.command==0x84 && gvcp.bootstrap.custom.register.write==0xc000 && "
         "gvcp.cmd.readmem.count==4"),
      of(rewrite_acknowledge, make_pending(5, 250),
         "gvcp.ack==0x89 && gvcp.ack.pendingack.timetocompletion==250"),
      of(rewrite_acknowledge, make_memory(5, {.address = 0xc000, .bytes = memory}),
         "gvcp.ack==0x85 && frame contains de:ad:be:ef"),
      of(rewrite_command, make_write_memory(6, {.address = 0xc000, .bytes = memory}),
         "gvcp.cmd.command==0x86 && gvcp.cmd.writemem.data==de:ad:be:ef"),
      of(rewrite_acknowledge, make_written(acknowledge_code::write_memory, 6, 4),
         "gvcp.ack==0x87 && gvcp.cmd.writemem.dataindex==4"),
      of(rewrite_command,
         make_packet_resend(
             7, {.streamChannel = 1, .blockId = 0xfffe, .firstPacket = 0x10203, .lastPacket = 0x10204}),
         "gvcp.cmd.command==0x40 && gvcp.cmd.flag.acq_required==0 && gvcp.cmd.resend.streamchannelindex==1 "
         "&& gvcp.cmd.resend.blockid==0xfffe && gvcp.cmd.resend.firstpacketid==0x10203 && "
         "gvcp.cmd.resend.lastpacketid==0x10204"),
      of(rewrite_command,
         make_packet_resend(8, {.ids = id_mode::extended,
                                .blockId = largeBlock,
                                .firstPacket = 0x10203,
                                .lastPacket = 0x0101'0204}),
         "gvcp.cmd.flag.64bitid==1 && gvcp.cmd.resend.extendedblockid==0x1122334455667788 && frame contains "
         "00:01:02:03:01:01:02:04"),
      of(rewrite_packet, make_leader(standard_head(0), {.timestamp = largeBlock, .image = geometry}),
         "gvsp.format==1 && gvsp.status==0 && gvsp.blockid16==0xfffe && gvsp.packetid24==0 && "
         "gvsp.payloadtype==1 && gvsp.timestamp==0x1122334455667788 && gvsp.pixel==0x01080001 && "
         "gvsp.sizex==1280 && gvsp.sizey==1024 && gvsp.offsetx==3 && gvsp.offsety==4 && gvsp.paddingx==5 && "
         "gvsp.paddingy==6"),
      of(rewrite_packet, make_trailer(standard_head(0x10203), {.height = 1024}),
         "gvsp.format==2 && gvsp.packetid24==0x10203 && gvsp.payloadtype==1 && gvsp.sizey==1024"),
      of(rewrite_packet,
         make_leader(extended_head(0), {.type = payload_type::chunk_data, .timestamp = 5, .image = {}}),
         "gvsp.format==0x81 && gvsp.blockid64==0x1122334455667788 && gvsp.packetid32==0 && "
         "gvsp.flag.packetresend==1 && gvsp.payloadtype==4 && gvsp.timestamp==5 && !gvsp.pixel"),
      of(rewrite_packet,
         make_trailer(extended_head(9), {.type = payload_type::chunk_data, .payloadSize = 1310740}),
         "gvsp.format==0x82 && gvsp.packetid32==9 && gvsp.payloadtype==4 && gvsp.payloadlength==1310740"),
      of(rewrite_packet,
         make_trailer(
             extended_head(9),
             {.type = payload_type::image_with_chunks, .height = 1024, .chunkSize = 40, .chunkLayoutId = 77}),
         "gvsp.payloadtype==0x4001 && gvsp.sizey==1024 && gvsp.chunkdatapayloadlengthhex==40 && "
         "gvsp.chunklayoutidhex==77"),
      of({.state = status::packet_unavailable, .blockId = 9, .packetId = 0xff'ffff},
         "gvsp.format==3 && gvsp.status==0x800c && gvsp.blockid16==9 && gvsp.packetid24==0xffffff"),
  };
}

}  // namespace gige_protocol
