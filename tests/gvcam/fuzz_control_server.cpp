// Any datagrams of two clients: the control channel neither reads beyond them nor lets both have control.
#include <algorithm>
#include <cstdlib>

#include "platform/gvcam/control_server.h"
#include "platform/gvcam/frame_settings.h"

namespace {

namespace standard = gige_protocol::registers;

constexpr gvcam::endpoint first{0x7f000001, 5000};
constexpr gvcam::endpoint second{0x7f000001, 5001};

gvcam::register_memory power_up() {
  gvcam::register_memory memory("fuzz.xml", "<xml/>");
  memory.set_word(standard::heartbeatTimeout, 500);
  memory.set_word(gvcam::features::sensorWidth, 640);
  memory.set_word(gvcam::features::sensorHeight, 480);
  return memory;
}

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
  if (gvcam::read_settings(memory).payload_size() > std::size_t{640} * 480 * 2 + chunks) {
    std::abort();
  }
}

}  // namespace

// Each datagram stands behind a byte that says who sends it, and when, and one with its size.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const gvcam::register_memory powerUp = power_up();
  gvcam::register_memory memory = powerUp;
  gvcam::control_server server(memory, &powerUp);
  gvcam::camera_time now{};
  gige_protocol::byte_view rest(data, size);
  while (rest.size() > 2) {
    const unsigned who = rest[0];
    const auto datagram = rest.subspan(2, std::min<std::size_t>(rest[1], rest.size() - 2));
    rest = rest.subspan(2 + datagram.size());
    now += std::chrono::milliseconds(who / 2);
    check(server.handle(datagram, who % 2 == 0 ? first : second, now), memory);
  }
  return 0;
}
