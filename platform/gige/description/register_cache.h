// The registers of a camera as far as they are known.
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

// Counts the changes that we made to a camera; what was read is of the moment at which it was read.
using moment = std::uint64_t;

// A register that the camera changes itself.
struct moving_register {
  std::uint64_t address = 0;
  std::chrono::milliseconds lifetime{0};  // what was read holds for so long; 0: it is read each time
};

// Keeps what was read by address, so that registers which several nodes share are one, and those behind a
// selector are as many as it has entries. (ArvGc's own cache keeps one content for each node, whichever entry
// is selected.) What it may still believe is said with each question.
class register_cache final : public register_port {
 public:
  using clock = std::chrono::steady_clock;

  // The camera's own port outlives this object.
  register_cache(register_port& camera, std::function<clock::time_point()> now);

  moment now() const { return now_; }
  // We changed something, by a register or without one.
  moment advance() { return ++now_; }

  // A new question begins: what was read before `oldest` is not believed, and of the moving registers only
  // what is young enough.
  void ask(moment oldest, std::vector<moving_register> moving);
  static constexpr moment nothing = UINT64_MAX;  // is believed

  void read(std::uint64_t address, std::span<std::uint8_t> to) override;
  // What was known of these registers is forgotten, also when the write fails: what the camera made of it is
  // not known.
  void write(std::uint64_t address, std::span<const std::uint8_t> from) override;
  // What the question wrote last, if anything, is what the camera has now: it needs not be read.
  void keep_written();
  void forget(std::uint64_t address, std::uint64_t size);

 private:
  using place = std::pair<std::uint64_t, std::uint64_t>;  // address and size
  struct content {
    std::vector<std::uint8_t> bytes;
    moment readAt = 0;
    clock::time_point readTime;
  };

  bool is_believed(std::uint64_t address, const content& known) const;
  void remember(const place& where, std::vector<std::uint8_t> bytes);

  register_port& camera_;
  const std::function<clock::time_point()> clock_;
  moment now_ = 1;
  std::map<place, content> known_;

  moment oldest_ = 0;
  std::vector<moving_register> moving_;
  std::optional<std::pair<place, std::vector<std::uint8_t>>> written_;
};

}  // namespace gige

#endif
