// All that a camera sends of its description: the URL, an HTTP server's answer, the archive, and the
// description itself with the registers behind it. What passes the check must neither end the process nor
// keep it busy.
#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/gige/description/archive.h"
#include "platform/gige/description/camera_features.h"
#include "platform/gige/description/description_source.h"
#include "platform/gige/description/http.h"
#include "platform/log2/log_sink.h"
#include "tests/gige/description/generated_description.h"
#include "tests/gige/description/memory_port.h"

namespace {

using description_test::memory_port;

// Whatever is refused is refused by exceptions of these two kinds.
template <class Work>
void attempt(Work work) {
  try {
    work();
  } catch (const gige::description_error&) {
  } catch (const GenICam::GenericException&) {
  }
}

void use(gev::feature& feature) {
  attempt([&] { feature.access(); });
  attempt([&] { feature.obstacle(); });
  attempt([&] { gev::format(feature.kind(), feature.entries(), feature.get(false)); });
  if (feature.kind() == gev::value_kind::integer || feature.kind() == gev::value_kind::floating) {
    attempt([&] { feature.min(); });
    attempt([&] { feature.max(); });
    attempt([&] { feature.inc(); });
  }
  attempt([&] { gev::write(feature, std::int64_t{-1}, false); });
  attempt([&] { gev::write(feature, std::int64_t{1}, true); });
  attempt([&] { feature.get(true); });
}

void describe(std::string_view xml, std::uint8_t content) {
  attempt([&] {
    memory_port camera;
    for (std::size_t at = 0; at < camera.memory.size(); ++at) {
      camera.memory[at] = static_cast<std::uint8_t>(at % 8 == 0 ? content : content & 1 ? 0xff : 0);
    }
    gige::camera_features features(xml, camera, {});
    for (gev::feature* const each : features.all()) {
      use(*each);
    }
    for (char name = 'A'; name < 'Z'; ++name) {
      attempt([&] { features.execute(std::string(1, name)); });
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, void*) {}, nullptr);
  LogSetSink([](void*, const log_line*) {}, nullptr);
  gige::prepare_descriptions();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::span<const std::uint8_t> bytes(data + 2, size - 2);
  const std::string text(bytes.begin(), bytes.end());
  switch (data[0] % 8) {
    case 0:
      attempt([&] { gige::parse_source(text); });
      attempt([&] { gige::content_of(text); });
      break;
    case 1:
      attempt([&] { gige::unpack(text); });
      break;
    case 2:
      describe(text, data[1]);
      break;
    default:
      describe(description_test::generated_description(bytes), data[1]);
  }
  return 0;
}
