#include "platform/gige/description/register_cache.h"

#include <algorithm>

namespace gige {
namespace {

// Far more registers than a camera has. One whose addresses never repeat would fill the memory.
constexpr std::size_t mostKnown = 16'384;

}  // namespace

register_cache::register_cache(register_port& camera, std::function<clock::time_point()> now)
    : camera_(camera), clock_(std::move(now)) {}

void register_cache::ask(moment oldest, std::vector<moving_register> moving) {
  oldest_ = oldest;
  moving_ = std::move(moving);
  written_.reset();
}

void register_cache::read(std::uint64_t address, std::span<std::uint8_t> to) {
  const place where{address, to.size()};
  const auto known = known_.find(where);
  if (known != known_.end() && is_believed(address, known->second)) {
    std::copy(known->second.bytes.begin(), known->second.bytes.end(), to.begin());
    return;
  }
  camera_.read(address, to);
  remember(where, {to.begin(), to.end()});
}

bool register_cache::is_believed(std::uint64_t address, const content& known) const {
  if (known.readAt < oldest_) {
    return false;
  }
  const auto moving = std::find_if(moving_.begin(), moving_.end(),
                                   [=](const moving_register& each) { return each.address == address; });
  return moving == moving_.end() || clock_() - known.readTime < moving->lifetime;
}

void register_cache::write(std::uint64_t address, std::span<const std::uint8_t> from) {
  forget(address, from.size());
  written_.reset();
  camera_.write(address, from);
  written_.emplace(place{address, from.size()}, std::vector<std::uint8_t>(from.begin(), from.end()));
}

void register_cache::keep_written() {
  if (written_) {
    remember(written_->first, std::move(written_->second));
    written_.reset();
  }
}

// Also what overlaps in part: registers may be described in pieces.
void register_cache::forget(std::uint64_t address, std::uint64_t size) {
  std::erase_if(known_, [=](const auto& each) {
    const auto& [knownAddress, knownSize] = each.first;
    return knownAddress - address < size || address - knownAddress < knownSize;
  });
}

void register_cache::remember(const place& where, std::vector<std::uint8_t> bytes) {
  if (known_.size() >= mostKnown) {
    known_.clear();
  }
  known_[where] = {.bytes = std::move(bytes), .readAt = now_, .readTime = clock_()};
}

}  // namespace gige
