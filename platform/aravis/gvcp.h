// The few commands of the GigE Vision control protocol that go past Aravis: finding cameras, and asking a
// silent one whether it is still there.
#ifndef PLATFORM_ARAVIS_GVCP_H
#define PLATFORM_ARAVIS_GVCP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace gige::gvcp {

constexpr std::uint16_t port = 3956;
constexpr std::size_t largestMessage = 576;

// Registers that every camera has.
constexpr std::uint32_t heartbeatTimeoutRegister = 0x0938;  // milliseconds
constexpr std::uint32_t controlRegister = 0x0a00;           // who may control it, see below
constexpr std::uint32_t controllerPortRegister = 0x0a04;    // of the client in control; optional
constexpr std::uint32_t controllerAddressRegister = 0x0a14;
constexpr std::uint32_t streamPortRegister = 0x0d00;  // where the image stream goes to
constexpr std::uint32_t streamAddressRegister = 0x0d18;

constexpr std::uint32_t exclusiveControl = 1U << 0;
constexpr std::uint32_t sharedControl = 1U << 1;

// "Who is there?", answered by a block of `discovery_size` bytes.
std::array<std::uint8_t, 8> discovery_command();
constexpr std::size_t discovery_size = 0xf8;

// "What is in these four bytes of memory?", answered by their address and them. An id of zero is none.
// Registers are asked for as memory since there are cameras that take a question for the control register,
// whoever asks, for the heartbeat of who has control, and so never free themselves of a client that is gone.
std::array<std::uint8_t, 16> read_command(std::uint32_t address, std::uint16_t id);
constexpr std::size_t readAnswerSize = 8;

// What a camera sent back.
struct answer {
  enum class kind { discovery, read, pending, other };
  kind what;
  std::uint16_t id;
  std::uint16_t status;  // 0: done
  std::span<const std::uint8_t> data;
};
// Nothing when that is no answer at all.
std::optional<answer> parse(std::span<const std::uint8_t> message);

// Big-endian numbers in an answer's data, which must reach that far.
std::uint32_t number_at(std::span<const std::uint8_t> data, std::size_t offset);

}  // namespace gige::gvcp

#endif
