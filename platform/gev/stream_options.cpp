#include "platform/gev/stream_options.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace gev {
namespace {

struct option_row {
  const char* name;
  std::uint32_t GEV_CAMERA_OPTIONS::*member;
  std::uint32_t powerUp;
  std::uint32_t min;
  std::uint32_t max;
  bool zeroAllowed;  // beside the range; zero means none, or the library's choice
};

// clang-format off
constexpr std::array rows = {
    option_row{"heartbeat_timeout_ms", &GEV_CAMERA_OPTIONS::heartbeat_timeout_ms, 10'000, 500, UINT32_MAX, false},
    option_row{"streamPktSize", &GEV_CAMERA_OPTIONS::streamPktSize, 1500, 576, 16'384, true},
    option_row{"streamPktDelay", &GEV_CAMERA_OPTIONS::streamPktDelay, 0, 0, 1'000'000, true},
    option_row{"streamNumFramesBuffered", &GEV_CAMERA_OPTIONS::streamNumFramesBuffered, 4, 1, 4096, false},
    option_row{"streamMemoryLimitMax", &GEV_CAMERA_OPTIONS::streamMemoryLimitMax, 128U << 20, 1, UINT32_MAX, false},
    option_row{"streamMaxPacketResends", &GEV_CAMERA_OPTIONS::streamMaxPacketResends, 100, 0, UINT32_MAX, true},
    option_row{"streamFrame_timeout_ms", &GEV_CAMERA_OPTIONS::streamFrame_timeout_ms, 1000, 1, UINT32_MAX, false},
    option_row{"streamPktResend_timeout_ms", &GEV_CAMERA_OPTIONS::streamPktResend_timeout_ms, 30, 0, UINT32_MAX, true},
    option_row{"streamSocketBufferSize", &GEV_CAMERA_OPTIONS::streamSocketBufferSize, 0, 0, UINT32_MAX, true},
    option_row{"streamThreadAffinity", &GEV_CAMERA_OPTIONS::streamThreadAffinity, 0, 0, 1024, true},
    option_row{"streamThreadPriority", &GEV_CAMERA_OPTIONS::streamThreadPriority, 0, 0, 99, true},
    option_row{"numRetries", &GEV_CAMERA_OPTIONS::numRetries, 3, 0, UINT32_MAX, true},
    option_row{"command_timeout_ms", &GEV_CAMERA_OPTIONS::command_timeout_ms, 2000, 1, UINT32_MAX, false},
};
// clang-format on

bool is_in_range(const GEV_CAMERA_OPTIONS& options, const option_row& row) {
  const std::uint32_t value = options.*row.member;
  return (value >= row.min && value <= row.max) || (value == 0 && row.zeroAllowed);
}

}  // namespace

GEV_CAMERA_OPTIONS default_options() {
  GEV_CAMERA_OPTIONS defaults{};
  for (const option_row& row : rows) {
    defaults.*row.member = row.powerUp;
  }
  return defaults;
}

GEV_STATUS read_options(const GEV_CAMERA_OPTIONS& kept, GEV_CAMERA_OPTIONS* to) {
  if (to == nullptr) {
    return GEVLIB_ERROR_PARAMETER_NULL;
  }
  *to = kept;
  return GEVLIB_OK;
}

GEV_STATUS replace_options(GEV_CAMERA_OPTIONS& kept, const GEV_CAMERA_OPTIONS* by) {
  if (by == nullptr) {
    return GEVLIB_ERROR_PARAMETER_NULL;
  }
  if (!std::ranges::all_of(rows, [&](const option_row& row) { return is_in_range(*by, row); })) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  kept = *by;
  return GEVLIB_OK;
}

std::string listed(const GEV_CAMERA_OPTIONS& options) {
  std::string list;
  for (const option_row& row : rows) {
    list += (list.empty() ? "" : ", ") + std::string(row.name) + ":" + std::to_string(options.*row.member);
  }
  return list;
}

}  // namespace gev
