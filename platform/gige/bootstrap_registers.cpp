#include "platform/gige/bootstrap_registers.h"

#include <array>

#include "core/log.h"
#include "platform/gige_protocol/bytes.h"

namespace gige {
namespace {

constexpr std::size_t registerBytes = 4;

}  // namespace

std::uint32_t bootstrap_registers::read(std::uint32_t address) {
  std::array<std::uint8_t, registerBytes> bytes{};
  features_.registers().read(address, bytes);
  return gige_protocol::load<std::uint32_t>(bytes, 0);
}

std::uint32_t bootstrap_registers::read_if_present(std::uint32_t address) {
  try {
    return read(address);
  } catch (const GenICam::TimeoutException&) {
    throw;
  } catch (const GenICam::GenericException&) {
    return 0;
  }
}

std::uint32_t bootstrap_registers::read_again(std::uint32_t address) {
  features_.forget_registers(address, registerBytes);
  return read_if_present(address);
}

void bootstrap_registers::write(std::uint32_t address, std::uint32_t value) {
  std::array<std::uint8_t, registerBytes> bytes{};
  gige_protocol::store(bytes, 0, value);
  features_.registers().write(address, bytes);
}

bool bootstrap_registers::try_to_write(const char* what, std::uint32_t address, std::uint32_t value) {
  try {
    write(address, value);
    return true;
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: %s of %s (value:%u, reason:%s)", what, camera_.c_str(), value, error.what());
    return false;
  }
}

}  // namespace gige
