// Any datagrams of two clients. The control channel neither reads beyond them nor gives control to both.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdlib>

#include "platform/gvcam/control_server.h"
#include "platform/gvcam/frame_settings.h"
#include "platform/gvcam/power_up.h"

namespace {

namespace standard = gige_protocol::registers;

constexpr gvcam::endpoint first{0x7f000001, 5000};
constexpr gvcam::endpoint second{0x7f000001, 5001};

// What holds after every datagram.
void check(const gvcam::outcome& result, const gvcam::register_memory& memory) {
  const bool isAnswer = !result.answer || gige_protocol::parse_acknowledge(result.answer->view());
  const bool hasControl = memory.word(standard::controlChannelPrivilege) != 0;
  const std::uint32_t port = memory.word(standard::primaryApplicationPort);
  const bool isControlled = port == first.port || port == second.port;
  // A frame never takes more memory than the sensor has pixels.
  const std::size_t chunks = gvcam::chunkKinds.size() * 16 + 8;
  const bool isTooLarge = gvcam::read_settings(memory).payload_size() > std::size_t{1280} * 1024 * 2 + chunks;
  if (!isAnswer || hasControl != isControlled || isTooLarge) {
    std::abort();
  }
}

// A datagram with the head of a command, so that its payload is parsed.
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

// A datagram is: its client and the time since the one before, its kind, its request id, its payload.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gvcam::register_memory powerUp = gvcam::power_up_memory({"FUZZ", 0x7f000001, ""}, {});
  gvcam::register_memory memory = powerUp;
  memory.set_word(standard::heartbeatTimeout, 500);
  gvcam::control_server server(memory, &powerUp);
  gvcam::camera_time now{};
  FuzzedDataProvider input(data, size);
  while (input.remaining_bytes() > 4) {
    const gvcam::endpoint& from = input.ConsumeBool() ? first : second;
    now += std::chrono::milliseconds(input.ConsumeIntegral<std::uint8_t>() / 2);
    const auto kind = input.ConsumeIntegral<std::uint8_t>();
    const auto id = input.ConsumeIntegral<std::uint8_t>();
    const auto payload = input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegral<std::uint8_t>());
    const auto command = make_command(kind, id, payload);
    check(server.handle(kind >= 0xf0 ? gige_protocol::byte_view(payload) : command.view(), from, now),
          memory);
  }
  return 0;
}
