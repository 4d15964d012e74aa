#include "host/acquire/open_camera.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace host {
namespace {

constexpr std::size_t kTextMax = 256;  // characters of a feature's value, with the NUL

}  // namespace

open_camera::open_camera(const camera_library& library, const std::string& serial, GevAccessMode mode)
    : library_(library) {
  std::vector<GEV_DEVICE_INTERFACE> found = library.list();
  const auto own =
      std::find_if(found.begin(), found.end(), [&](const auto& each) { return serial == each.serial; });
  if (own == found.end()) {
    throw camera_error(fmt::format("camera '{}' does not answer", serial));
  }
  if (const GEV_STATUS status = library_.openCamera_(&*own, mode, &handle_); status != GEVLIB_OK) {
    throw camera_error(fmt::format("camera '{}' can't be opened: {}", serial, status_text(status)));
  }
}

open_camera::~open_camera() {
  library_.closeCamera_(&handle_);
}

std::optional<std::string> open_camera::read(const char* feature) const {
  std::array<char, kTextMax> text{};
  int kind = 0;
  if (library_.getFeatureValue_(handle_, feature, &kind, kTextMax, text.data()) != GEVLIB_OK) {
    return std::nullopt;
  }
  text.back() = '\0';
  return text.data();
}

bool open_camera::write(const char* feature, const std::string& text) const {
  std::array<char, kTextMax> buffer{};
  text.copy(buffer.data(), buffer.size() - 1);
  return library_.setFeatureValue_(handle_, feature, kTextMax, buffer.data()) == GEVLIB_OK;
}

std::string status_text(GEV_STATUS status) {
  constexpr std::array kTexts = {
      std::pair{GEVLIB_ERROR_DEVICE_NOT_FOUND, "it no longer answers"},
      std::pair{GEVLIB_ERROR_ACCESS_DENIED, "another program controls it"},
      std::pair{GEVLIB_ERROR_TIME_OUT, "it did not answer in time"},
      std::pair{GEVLIB_ERROR_ABORTED, "the program ends"},
      std::pair{GEVLIB_ERROR_NO_MEMORY, "memory ran out"},
      std::pair{GEVLIB_ERROR_DEVICE_LOST, "it stopped answering"},
      std::pair{GEVLIB_ERROR_FEATURE_NOT_FOUND, "it has no such feature"},
      std::pair{GEVLIB_ERROR_FEATURE_REFUSED, "it refuses the value"},
  };
  const auto* const found =
      std::find_if(kTexts.begin(), kTexts.end(), [=](const auto& each) { return each.first == status; });
  return found == kTexts.end() ? fmt::format("the camera library gave {}", status) : found->second;
}

}  // namespace host
