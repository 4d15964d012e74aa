#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "core/log.h"
#include "host/acquire/library.h"
#include "host/acquire/signals.h"
#include "host/check/cameras.h"
#include "host/check/check.h"
#include "host/check/features.h"
#include "host/config/config.h"
#include "host/config/template.h"
#include "host/config/text.h"
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

host::camera_library library_of(const host::options& chosen) {
  return host::camera_library(host::find_framework(chosen.libraries.framework));
}

int run(const host::options& chosen, host::config configuration, host::console& screen) {
  const host::camera_library library = library_of(chosen);
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
      return host::list_cameras(library_of(chosen), wanted, chosen.libraries.is_simulated());
    }
    case host::command::validate:
      fmt::print("{}: valid, {} cameras, {} sweeps\n", chosen.configPath, configuration.cameras.size(),
                 configuration.sweeps.size());
      break;
    case host::command::features:
      return host::show_features(library_of(chosen), chosen.camera, chosen.features);
    case host::command::address:
      return host::set_camera_address(library_of(chosen), chosen.camera, chosen.address);
    case host::command::config:
      if (!chosen.camera.empty()) {
        return host::write_config(library_of(chosen), chosen.camera);
      }
      fmt::print("{}", host::config_template());
      break;
  }
  return 0;
}

// What the program was asked to do, or the exit code where that is answered or wrong.
struct request {
  host::options chosen;
  host::config configuration;
  std::optional<int> exitCode;
};

request read_request(int argc, const char* const* argv) {
  host::command_line line = host::parse_command_line(argc, argv);
  request asked{.chosen = std::move(line.value), .configuration = {}, .exitCode = line.exitCode};
  if (asked.exitCode || asked.chosen.configPath.empty()) {
    return asked;
  }
  host::config_result read = asked.chosen.what == host::command::cameras
                                 ? host::load_config(asked.chosen.configPath)
                                 : host::load_config(asked.chosen);
  for (const auto* lines : {&read.errors, &read.warnings}) {
    for (const std::string& text : *lines) {
      fmt::print(stderr, "{}\n", host::printable(text));
    }
  }
  asked.configuration = std::move(read.value);
  if (!read.errors.empty()) {
    asked.exitCode = kWrong;
  }
  return asked;
}

// Nothing here may need memory, nor may it be left to whoever failed: some libraries let no exception out.
[[noreturn]] void end_without_memory() {
  constexpr std::string_view kText = "mediagrabber: there is no memory to read options and configuration\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kText.data(), kText.size());
  _exit(kWrong);
}

// Made before any other object of the program, as those may already need memory.
struct memory_watch {
  std::terminate_handler usual = std::set_terminate(end_without_memory);
};
[[gnu::init_priority(101)]] const memory_watch watchOfStart;

}  // namespace

int main(int argc, char** argv) {
  request asked;
  try {
    asked = read_request(argc, argv);
  } catch (const std::bad_alloc&) {
    end_without_memory();
  }
  std::set_terminate(watchOfStart.usual);
  if (asked.exitCode) {
    return *asked.exitCode;
  }
  host::hold_signals();
  try {
    host::console screen(log_level(asked.chosen));
    try {
      return execute(asked.chosen, std::move(asked.configuration), screen);
    } catch (const std::exception& error) {
      LOG(1, "fail: %s", error.what());
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "fail: %s\n", error.what());
  }
  return kFailed;
}
