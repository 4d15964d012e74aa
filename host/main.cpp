#include <fmt/format.h>

#include <cstdio>
#include <exception>

#include "core/log.h"
#include "host/acquire/library.h"
#include "host/acquire/signals.h"
#include "host/check/cameras.h"
#include "host/check/check.h"
#include "host/config/config.h"
#include "host/config/template.h"
#include "host/options.h"
#include "host/report/console.h"
#include "host/session.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrong = 2;

// Unless the command line says otherwise: a test and a list are not to be lost among log lines.
int log_level(const host::options& chosen) {
  if (chosen.logLevel != 0) {
    return chosen.logLevel;
  }
  return chosen.what == host::command::run ? 3 : 1;
}

int run(const host::options& chosen, host::config configuration, host::console& screen) {
  const host::camera_library library(host::find_framework(chosen.libraries.framework));
  const host::bundle_session bundle(host::find_bundle(chosen.libraries.bundle));
  host::session session(chosen, std::move(configuration), library, bundle, screen);
  return session.run();
}

int execute(const host::options& chosen, host::config configuration, host::console& screen) {
  switch (chosen.what) {
    case host::command::run:
      return run(chosen, std::move(configuration), screen);
    case host::command::check:
      return host::check_cameras(chosen.libraries, configuration);
    case host::command::cameras: {
      std::vector<std::string> wanted = chosen.cameras;
      for (const host::camera_config& camera : configuration.cameras) {
        wanted.push_back(camera.serial);
      }
      const host::camera_library library(host::find_framework(chosen.libraries.framework));
      return host::list_cameras(library, wanted, chosen.libraries.is_simulated());
    }
    case host::command::config:
      fmt::print("{}", host::config_template());
      break;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const host::command_line line = host::parse_command_line(argc, argv);
  if (line.exitCode) {
    return *line.exitCode;
  }
  const host::options& chosen = line.value;
  host::config_result configuration;
  if (!chosen.configPath.empty()) {
    configuration = chosen.what == host::command::cameras ? host::load_config(chosen.configPath)
                                                          : host::load_config(chosen);
  }
  if (!configuration.errors.empty()) {
    fmt::print(stderr, "{}\n", fmt::join(configuration.errors, "\n"));
    return kWrong;
  }
  host::hold_signals();
  host::console screen(log_level(chosen));
  try {
    return execute(chosen, std::move(configuration.value), screen);
  } catch (const std::exception& error) {
    LOG(1, "fail: %s", error.what());
    return kFailed;
  }
}
