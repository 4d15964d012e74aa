// What is known of a camera's registers.
#ifndef PLATFORM_GIGE_DESCRIPTION_REGISTER_CACHE_H
#define PLATFORM_GIGE_DESCRIPTION_REGISTER_CACHE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "platform/gige/description/register_port.h"

namespace gige {

// Counts the writes to one camera: each write begins a new revision.
using revision = std::uint64_t;

// A register that the camera changes by itself.
struct polled_register {
  std::uint64_t address = 0;
  std::chrono::milliseconds lifetime{0};  // bytes that were read are valid for so long; 0: for one read
};

// Keeps what was read, by address and size. Several nodes may share a register, which is then read once; a
// register behind a selector has an address for each entry, which are all kept. (ArvGc's own cache keeps the
// bytes of one entry.)
//
// Which bytes are still valid depends on the feature that is accessed. An example: at revision 3 Gain and
// ExposureTime were read, then a write of GainSelector began revision 5. An access to Gain begins with
// oldest = 5, so its register is read again. An access to ExposureTime, which has no selector, begins with
// oldest = 0 and needs no command.
//
// Under the camera's lock.
class register_cache final : public register_port {
 public:
  using clock = std::chrono::steady_clock;

  // `camera`, the camera's own port, outlives this object.
  register_cache(register_port& camera, std::function<clock::time_point()> now);

  revision now() const { return now_; }
  // Counts a write.
  revision advance() { return ++now_; }

  // An access to a feature begins. Until the next one begins, bytes that were read before `oldest` are read
  // again, and so are those of the polled registers whose lifetime is over.
  void begin_access(revision oldest, std::vector<polled_register> polled);
  static constexpr revision readAll = UINT64_MAX;  // for `oldest`: no bytes are valid

  void read(std::uint64_t address, std::span<std::uint8_t> to) override;
  // Forgets what was known of these registers, also when the write fails: the camera may have done a part.
  void write(std::uint64_t address, std::span<const std::uint8_t> from) override;
  // Keeps the bytes of the last write of this access, if there was one, as if they had been read.
  void keep_written();
  // Forgets every register that shares a byte with this range.
  void forget(std::uint64_t address, std::uint64_t size);

 private:
  using range = std::pair<std::uint64_t, std::uint64_t>;  // address and size
  struct content {
    std::vector<std::uint8_t> bytes;
    revision readAt = 0;
    clock::time_point readTime;
  };

  bool is_valid(std::uint64_t address, const content& known) const;
  void keep(const range& where, std::vector<std::uint8_t> bytes);

  register_port& camera_;
  const std::function<clock::time_point()> clock_;
  revision now_ = 1;
  std::map<range, content> known_;

  // Of the present access.
  revision oldest_ = 0;
  std::vector<polled_register> polled_;
  std::optional<std::pair<range, std::vector<std::uint8_t>>> written_;
};

}  // namespace gige

#endif
