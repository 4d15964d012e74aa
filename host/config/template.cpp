#include "host/config/template.h"

#include <fmt/format.h>

#include "host/config/keys.h"

namespace host {
namespace {

const char* need_text(presence need) {
  constexpr const char* texts[] = {"required", "default as written", "optional"};
  return texts[static_cast<std::size_t>(need)];
}

// In an active section optional keys without a value are comments, in any other section all keys are.
std::string template_lines(const key_table& keys, bool isActive, const camera_values& camera = {}) {
  std::string lines;
  for (const config_key& key : keys) {
    const auto own = camera.find(key.name);
    const bool isOwn = own != camera.end();
    const bool isComment = !isActive || (key.need == presence::optional && !isOwn);
    lines += fmt::format("# {}\n# {}; {}.\n", key.comment, expectation(key), need_text(key.need));
    if (isOwn && !own->second.limits.empty()) {
      lines += fmt::format("# This camera takes {}.\n", own->second.limits);
    }
    lines +=
        fmt::format("{}{} = {}\n\n", isComment ? "#" : "", key.name, isOwn ? own->second.value : key.example);
  }
  return lines;
}

}  // namespace

std::string config_template(const camera_values& camera) {
  return "# Configuration of mediagrabber. One [[camera]] for each camera.\n\n[[camera]]\n" +
         template_lines(camera_keys(), true, camera) +
         "# One [[camera.pin]] for each IR output of the camera above it.\n#[[camera.pin]]\n" +
         template_lines(pin_keys(), false) +
         "# Sweeps change settings while frames flow, one after the other in the order of the file.\n"
         "# At least one setting each.\n#[[sweep]]\n" +
         template_lines(sweep_keys(), false);
}

}  // namespace host
