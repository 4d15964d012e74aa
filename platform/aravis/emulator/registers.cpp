#include "platform/aravis/emulator/registers.h"

#include <endian.h>

#include <algorithm>
#include <bit>

namespace gvcam {

std::uint32_t registers::word(register_address at) const {
  std::uint32_t value = 0;
  arv_fake_camera_read_register(camera_, at, &value);
  return value;
}

void registers::set_word(register_address at, std::uint32_t value) {
  arv_fake_camera_write_register(camera_, at, value);
}

double registers::number(register_address at) const {
  std::uint64_t wire = 0;
  arv_fake_camera_read_memory(camera_, at, sizeof wire, &wire);
  return std::bit_cast<double>(be64toh(wire));
}

void registers::set_number(register_address at, double value) {
  const std::uint64_t wire = htobe64(std::bit_cast<std::uint64_t>(value));
  arv_fake_camera_write_memory(camera_, at, sizeof wire, &wire);
}

void registers::set_text(register_address at, std::size_t size, std::string_view text) {
  std::vector<char> wire(size);
  std::copy_n(text.begin(), std::min(text.size(), size - 1), wire.begin());
  arv_fake_camera_write_memory(camera_, at, static_cast<std::uint32_t>(size), wire.data());
}

std::vector<std::uint8_t> registers::snapshot() const {
  std::vector<std::uint8_t> memory(own::settingsEnd);
  arv_fake_camera_read_memory(camera_, 0, own::settingsEnd, memory.data());
  return memory;
}

void registers::restore(const std::vector<std::uint8_t>& snapshot) {
  arv_fake_camera_write_memory(camera_, 0, static_cast<std::uint32_t>(snapshot.size()), snapshot.data());
}

}  // namespace gvcam
