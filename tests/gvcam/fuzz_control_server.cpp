// Any datagrams of two clients: the control channel neither reads beyond them nor lets both have control.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "platform/gvcam/control_server.h"
#include "platform/gvcam/frame_settings.h"
#include "platform/gvcam/power_up.h"

namespace {

namespace standard = gige_protocol::registers;

constexpr gvcam::endpoint first{0x7f000001, 5000};
constexpr gvcam::endpoint second{0x7f000001, 5001};

// What every answer promises.
void check(const gvcam::outcome& result, const gvcam::register_memory& memory) {
  if (result.answer && !gige_protocol::parse_acknowledge(result.answer->view())) {
    std::abort();
  }
  const bool hasControl = memory.word(standard::controlChannelPrivilege) != 0;
  const std::uint32_t port = memory.word(standard::primaryApplicationPort);
  if (hasControl != (port == first.port || port == second.port)) {
    std::abort();
  }
  // A frame never takes more memory than the sensor has pixels.
  const std::size_t chunks = gvcam::chunkKinds.size() * 16 + 8;
  if (gvcam::read_settings(memory).payload_size() > std::size_t{1280} * 1024 * 2 + chunks) {
    std::abort();
  }
}

// Takes so many bytes away from the front, or what is left.
gige_protocol::byte_view take(gige_protocol::byte_view& from, std::size_t count) {
  const auto taken = from.first(std::min(count, from.size()));
  from = from.subspan(taken.size());
  return taken;
}

// A datagram with the head of one of the commands, so that what follows is looked at.
gige_protocol::message make_command(std::uint8_t kind, std::uint8_t id, gige_protocol::byte_view payload) {
  constexpr std::array<std::uint16_t, 8> codes = {0x0002, 0x0004, 0x0040, 0x0080,
                                                  0x0082, 0x0084, 0x0086, 0x0100};
  gige_protocol::message made;
  made.put(std::uint8_t{0x42});
  made.put(static_cast<std::uint8_t>(kind & 0x11U));
  made.put(codes[(kind >> 1U) % codes.size()]);
  made.put(static_cast<std::uint16_t>(payload.size()));
  made.put(std::uint16_t{id});
  made.put(payload);
  return made;
}

}  // namespace

// Each datagram stands behind four bytes: who sends it and when, what kind it is, its request id and size.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gvcam::register_memory powerUp = gvcam::power_up_memory({"FUZZ", 0x7f000001, ""}, {});
  gvcam::register_memory memory = powerUp;
  memory.set_word(standard::heartbeatTimeout, 500);
  gvcam::control_server server(memory, &powerUp);
  gvcam::camera_time now{};
  gige_protocol::byte_view rest(data, size);
  while (rest.size() > 4) {
    const auto head = take(rest, 4);
    const auto payload = take(rest, head[3]);
    const gvcam::endpoint& from = head[0] % 2 == 0 ? first : second;
    now += std::chrono::milliseconds(head[0] / 2);
    const bool isRaw = head[1] >= 0xf0;
    const auto command = make_command(head[1], head[2], payload);
    check(server.handle(isRaw ? payload : command.view(), from, now), memory);
  }
  return 0;
}
