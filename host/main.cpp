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
#include "host/check/address.h"
#include "host/check/cameras.h"
#include "host/check/check.h"
#include "host/check/features.h"
#include "host/config/config.h"
#include "host/config/template.h"
#include "host/config/text.h"
#include "host/options.h"
#include "host/report/log_router.h"
#include "host/report/standard_error.h"
#include "host/session.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrong = 2;

// Unless the command line sets a level, only a run shows more than errors, which would hide tables and lists.
int log_level(const host::options& chosen) {
  if (chosen.logLevel != 0) {
    return chosen.logLevel;
  }
  return chosen.what == host::command::run ? 3 : 1;
}

struct reporting {
  explicit reporting(int level) : log(level, error) {}

  host::standard_error error;
  host::log_router log;
};

host::camera_library library_of(const host::options& chosen) {
  return host::camera_library(host::find_framework(chosen.libraries.framework));
}

int run(const host::options& chosen, host::config configuration, reporting& report) {
  const host::camera_library library = library_of(chosen);
  const host::bundle_session bundle(host::find_bundle(chosen.libraries.bundle));
  host::session session(chosen, std::move(configuration), library, bundle, report.error, report.log.tail());
  return session.run();
}

int execute(const host::options& chosen, host::config configuration, reporting& report) {
  switch (chosen.what) {
    case host::command::run:
      return run(chosen, std::move(configuration), report);
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

// What the program is to do, or the exit code where that is answered or wrong.
struct request {
  host::options chosen;
  host::config configuration;
  std::optional<int> exitCode;
};

request read_request(int argc, const char* const* argv) {
  host::command_line line = host::parse_command_line(argc, argv);
  request wanted{.chosen = std::move(line.value), .configuration = {}, .exitCode = line.exitCode};
  if (wanted.exitCode || wanted.chosen.configPath.empty()) {
    return wanted;
  }
  host::config_result read = wanted.chosen.what == host::command::cameras
                                 ? host::load_config(wanted.chosen.configPath)
                                 : host::load_config(wanted.chosen);
  for (const auto* lines : {&read.errors, &read.warnings}) {
    for (const std::string& text : *lines) {
      fmt::print(stderr, "{}\n", host::printable(text));
    }
  }
  wanted.configuration = std::move(read.value);
  if (!read.errors.empty()) {
    wanted.exitCode = kWrong;
  }
  return wanted;
}

// Needs no memory. As the terminate handler it also serves libraries that let no exception out.
[[noreturn]] void end_without_memory() {
  constexpr std::string_view kText = "mediagrabber: there is no memory to read options and configuration\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kText.data(), kText.size());
  _exit(kWrong);
}

// In force before any other object of the program is made, which may already need memory.
struct terminate_handlers {
  std::terminate_handler usual = std::set_terminate(end_without_memory);
};
[[gnu::init_priority(101)]] const terminate_handlers handlersOfStart;

}  // namespace

int main(int argc, char** argv) {
  request wanted;
  try {
    wanted = read_request(argc, argv);
  } catch (const std::bad_alloc&) {
    end_without_memory();
  }
  std::set_terminate(handlersOfStart.usual);
  if (wanted.exitCode) {
    return *wanted.exitCode;
  }
  host::hold_signals();
  try {
    reporting report{log_level(wanted.chosen)};
    try {
      return execute(wanted.chosen, std::move(wanted.configuration), report);
    } catch (const std::exception& error) {
      LOG(1, "fail: %s", error.what());
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "fail: %s\n", error.what());
  }
  return kFailed;
}
