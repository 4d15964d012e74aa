// The command line.
#ifndef HOST_OPTIONS_H
#define HOST_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/library.h"
#include "host/live_page.h"
#include "host/outputs/image_files.h"
#include "host/web/web_server.h"

namespace host {

enum class command : std::uint8_t { run, check, validate, cameras, features, config, address };

struct options {
  std::string configPath;  ///< may be empty for `cameras`
  library_choice libraries;
  std::vector<std::string> cameras;  ///< serial numbers; empty: all

  std::string camera;                 ///< of `features`, `config` and `address`; may be empty for `config`
  std::vector<std::string> features;  ///< NAME, or NAME=VALUE
  std::string address;                ///< IP/MASK

  std::string recordDirectory;  ///< empty: no recording
  std::string y4mPath;          ///< empty: no video
  std::string statsPath;        ///< empty: none
  std::optional<endpoint> metrics;
  std::optional<live_options> live;
  std::optional<std::uint64_t> frames;
  std::optional<double> seconds;
  std::optional<std::uint64_t> maxFailures;
  std::uint64_t every = 1;
  int logLevel = 0;  ///< 0: what suits the command
  command what = command::run;
  image_format format = image_format::png;
  keep_limits keep;
  bool isOverwriting = false;  ///< a file that the video goes to
  bool restart = true;
  bool isQuiet = false;
};

/// The options of the command line; or the exit code, where it was answered (0) or is wrong (2).
struct command_line {
  options value;
  std::optional<int> exitCode;
};

/// Writes help and version to standard output and errors to standard error.
command_line parse_command_line(int argc, const char* const* argv);

}  // namespace host

#endif
