#include "platform/gige/description/register_cache.h"

#include <algorithm>

namespace gige {
namespace {

// Far more registers than a camera has. A description whose addresses never repeat would fill the memory.
constexpr std::size_t mostKnown = 16'384;

}  // namespace

register_cache::register_cache(register_port& camera, std::function<clock::time_point()> now)
    : camera_(camera), clock_(std::move(now)) {}

void register_cache::begin_access(revision oldest, std::vector<polled_register> polled) {
  oldest_ = oldest;
  polled_ = std::move(polled);
  written_.reset();
}

void register_cache::read(std::uint64_t address, std::span<std::uint8_t> to) {
  const range where{address, to.size()};
  const auto known = known_.find(where);
  if (known != known_.end() && is_valid(address, known->second)) {
    std::copy(known->second.bytes.begin(), known->second.bytes.end(), to.begin());
    return;
  }
  camera_.read(address, to);
  keep(where, {to.begin(), to.end()});
}

bool register_cache::is_valid(std::uint64_t address, const content& known) const {
  if (known.readAt < oldest_) {
    return false;
  }
  const auto polled = std::find_if(polled_.begin(), polled_.end(),
                                   [=](const polled_register& each) { return each.address == address; });
  return polled == polled_.end() || clock_() - known.readTime < polled->lifetime;
}

void register_cache::write(std::uint64_t address, std::span<const std::uint8_t> from) {
  forget(address, from.size());
  written_.reset();
  camera_.write(address, from);
  written_.emplace(range{address, from.size()}, std::vector<std::uint8_t>(from.begin(), from.end()));
}

void register_cache::keep_written() {
  if (written_) {
    keep(written_->first, std::move(written_->second));
    written_.reset();
  }
}

// Two nodes may describe overlapping parts of one register.
void register_cache::forget(std::uint64_t address, std::uint64_t size) {
  std::erase_if(known_, [=](const auto& each) {
    const auto& [knownAddress, knownSize] = each.first;
    return knownAddress - address < size || address - knownAddress < knownSize;
  });
}

void register_cache::keep(const range& where, std::vector<std::uint8_t> bytes) {
  if (known_.size() >= mostKnown) {
    known_.clear();
  }
  known_[where] = {.bytes = std::move(bytes), .readAt = now_, .readTime = clock_()};
}

}  // namespace gige
