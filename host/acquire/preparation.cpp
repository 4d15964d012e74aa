#include "host/acquire/preparation.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <vector>

#include "core/log.h"
#include "host/acquire/open_camera.h"

namespace host {
namespace {

struct wanted_value {
  const char* feature;
  const char* value;
};

constexpr std::array kWanted = {wanted_value{"lutType", "GammaCorrection"},
                                wanted_value{"lutMode", "Active"}};

}  // namespace

std::string prepare_camera(const camera_library& library, const std::string& serial) try {
  const open_camera camera(library, serial);
  std::vector<std::string> done;
  for (const wanted_value& each : kWanted) {
    const std::optional<std::string> found = camera.read(each.feature);
    if (!found || *found == each.value) {
      continue;
    }
    if (camera.write(each.feature, each.value)) {
      done.push_back(fmt::format("{} from {} to {}", each.feature, *found, each.value));
    } else {
      LOG(2, "fail: %s is %s and can't be set to %s, which the driver expects", each.feature, found->c_str(),
          each.value);
    }
  }
  return done.empty() ? "" : fmt::format("prepared: {}", fmt::join(done, ", "));
} catch (const camera_error&) {
  return "";
} catch (const library_error&) {
  return "";
}

}  // namespace host
