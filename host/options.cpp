#include "host/options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>

#include "host/check/address.h"
#include "host/config/keys.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::uint64_t kCountMax = 1'000'000'000'000;  // frames, failures: longer than any camera lives

std::optional<int> port_of(const std::string& text) {
  int port = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  const bool isPort = error == std::errc() && end == text.data() + text.size() && port >= 0 && port <= 65535;
  return isPort ? std::optional(port) : std::nullopt;
}

// "PORT", ":PORT", "ADDRESS:PORT" or "[ADDRESS]:PORT".
endpoint endpoint_of(const char* option, const std::string& text) {
  const auto colon = text.rfind(':');
  const std::string portText = colon == std::string::npos ? text : text.substr(colon + 1);
  std::string address = colon == std::string::npos ? "" : text.substr(0, colon);
  if (address.size() > 2 && address.front() == '[' && address.back() == ']') {
    address = address.substr(1, address.size() - 2);
  }
  const auto port = port_of(portText);
  if (!port) {
    throw CLI::ValidationError(
        option, fmt::format("'{}' must be ADDRESS:PORT or PORT, with a port from 0 to 65535", text));
  }
  return {address.empty() ? kLoopback : address, *port};
}

// Above 0, and no NaN, which a range takes.
const CLI::Validator kSeconds(
    [](const std::string& text) {
      double seconds = 0;
      const bool isValid = CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds <= 1e9;
      return isValid ? "" : fmt::format("'{}' must be a number above 0, at most 1e9", text);
    },
    "S");

// Converts the text. False when the validator refuses it.
bool converts(const CLI::Validator& validator, std::string& text) {
  try {
    return validator(text).empty();
  } catch (const CLI::ValidationError&) {
    return false;
  }
}

// "7d" is an age, "200GB" a size, "free=20GB" what is to be left.
void add_limit(keep_limits& limits, const std::string& text) {
  constexpr std::string_view kFree = "free=";
  static const CLI::AsNumberWithUnit asSeconds(
      std::map<std::string, double>{{"min", 60}, {"h", 3600}, {"d", 86400}},
      CLI::AsNumberWithUnit::UNIT_REQUIRED);
  const bool isFree = text.starts_with(kFree);
  const bool hasUnit = !text.empty() && std::isdigit(static_cast<unsigned char>(text.back())) == 0;
  std::string size = isFree ? text.substr(kFree.size()) : text;
  std::string age = text;
  if (hasUnit && converts(CLI::AsSizeValue(true), size)) {
    (isFree ? limits.freeBytes : limits.bytes) = std::stoull(size);
  } else if (converts(asSeconds, age) && std::stod(age) > 0 && std::stod(age) <= 1e9) {
    limits.age = std::chrono::microseconds(std::llround(std::stod(age) * 1e6));
  } else {
    throw CLI::ValidationError(
        "--keep",
        fmt::format("'{}' must be an age (30min, 12h, 7d), a size (500MB, 2TB) or free=SIZE", text));
  }
}

const std::map<std::string, image_format>& formats() {
  static const std::map<std::string, image_format> all = {
      {"png", image_format::png}, {"pgm", image_format::pgm}, {"raw", image_format::raw}};
  return all;
}

const std::map<std::string, int>& levels() {
  static const std::map<std::string, int> all = {{"error", 1}, {"warning", 2}, {"state", 3}, {"done", 4},
                                                 {"exec", 5},  {"1", 1},       {"2", 2},     {"3", 3},
                                                 {"4", 4},     {"5", 5}};
  return all;
}

// An option that takes one of the words of a table.
template <class Target>
void add_choice(CLI::App& app, const char* names, Target& target, const std::map<std::string, Target>& words,
                const char* valueName, const char* help) {
  app.add_option_function<std::string>(
         names, [&](const std::string& word) { target = words.at(word); }, help)
      ->type_name(valueName)
      ->check(CLI::IsMember(words));
}

void add_text(CLI::App& app, const char* names, std::string& target, const char* valueName,
              const char* help) {
  app.add_option(names, target, help)->type_name(valueName);
}

template <class Target>
void add_count(CLI::App& app, const char* names, Target& target, const char* help) {
  app.add_option(names, target, help)->type_name("N")->check(CLI::Range(std::uint64_t{1}, kCountMax));
}

void add_config(CLI::App& app, options& to, bool isRequired) {
  app.add_option("CONFIG", to.configPath, "configuration file (see 'mediagrabber config')")
      ->type_name("")
      ->required(isRequired);
}

// What is the same for every command that uses cameras.
void add_common(CLI::App& app, options& to) {
  add_text(app, "-F,--framework", to.libraries.framework, "LIB", "sim, gige (default), or a path");
  add_text(app, "-B,--bundle", to.libraries.bundle, "PATH", "another camera driver bundle");
  add_choice(app, "-l,--log-level", to.logLevel, levels(), "LEVEL", "1-5 or error,warning,state,done,exec");
}

void add_choice_of_cameras(CLI::App& app, options& to) {
  app.add_option("-c,--camera", to.cameras, "only this camera; may be repeated")
      ->type_name("SERIAL")
      ->allow_extra_args(false);
}

void add_camera(CLI::App& app, options& to, bool isRequired) {
  app.add_option("CAMERA", to.camera, "serial number")->type_name("")->required(isRequired);
}

// An address that a camera can have.
const CLI::Validator kAddress(
    [](const std::string& text) {
      return parse_address(text) ? std::string()
                                 : fmt::format("'{}' must be IP/MASK of one host, as 192.168.0.7/24", text);
    },
    "", "address");

void add_run(CLI::App& app, options& to) {
  add_count(app, "-n,--frames", to.frames, "end after N frames of each camera");
  app.add_option("-t,--seconds", to.seconds, "end after S seconds")->type_name("S")->check(kSeconds);
  add_text(app, "-r,--record", to.recordDirectory, "DIR", "record into DIR/SERIAL");
  add_choice(app, "-f,--format", to.format, formats(), "FORMAT", "png (default), pgm or raw");
  add_count(app, "-e,--every", to.every, "record every Nth frame");
  app.add_option_function<std::vector<std::string>>(
         "-k,--keep",
         [&to](const std::vector<std::string>& limits) {
           for (const std::string& limit : limits) {
             add_limit(to.keep, limit);
           }
         },
         "of each camera's recording: 7d, 200GB, free=20GB; may be repeated")
      ->type_name("LIMIT")
      ->allow_extra_args(false)
      ->needs("--record");
  add_text(app, "-y,--y4m", to.y4mPath, "FILE", "video of the one camera, '-': standard output");
  app.add_flag("--overwrite", to.isOverwriting, "let the video replace an existing file");
  add_text(app, "-s,--stats", to.statsPath, "FILE", "append statistics, a JSON object a line");
  app.add_option_function<std::string>(
         "-m,--metrics", [&to](const std::string& text) { to.metrics = endpoint_of("--metrics", text); },
         "serve Prometheus metrics")
      ->type_name("ADDR:PORT");
  app.add_flag_callback(
      "--restart", [&to] { to.restart = true; }, "create a failed device again (default)");
  app.add_flag_callback(
      "--no-restart", [&to] { to.restart = false; }, "end with 1 when a device fails");
  add_count(app, "--max-failures", to.maxFailures, "end with 1 after N failures in a row");
}

void add_live(CLI::App& app, live_options& to) {
  CLI::Option* const web = app.add_option_function<std::string>(
      "-w,--web", [&to](const std::string& text) { to.where = endpoint_of("--web", text); },
      "serve the live page; only a port: on loopback");
  web->type_name("ADDR:PORT");
  const auto needWeb = [web](CLI::Option* option) { return option->needs(web); };
  needWeb(
      app.add_option("--web-token-file", to.tokenFile, "file of the page's secret; without it, a new secret"))
      ->type_name("FILE");
  CLI::Option* const certificate =
      app.add_option("--web-cert", to.certificate, "TLS: certificate chain, PEM");
  CLI::Option* const key = app.add_option("--web-key", to.key, "TLS: its key, PEM");
  needWeb(certificate)->type_name("FILE")->needs(key);
  needWeb(key)->type_name("FILE")->needs(certificate);
  needWeb(
      app.add_option("--web-host", to.hosts, "a name that browsers know this machine by; may be repeated"))
      ->type_name("NAME")
      ->expected(1);
  needWeb(app.add_flag("--web-read-only", to.isReadOnly, "let nobody change anything on the page"));
}

void add_verbosity(CLI::App& app, options& to) {
  app.add_flag_callback(
      "-q,--quiet",
      [&to] {
        to.isQuiet = true;
        to.logLevel = 1;
      },
      "errors only");
  app.add_flag_function(
      "-v,--verbose", [&to](std::int64_t times) { to.logLevel = times > 1 ? 5 : 4; },
      "more log lines, twice: all");
}

// Every name that an app or command takes: commands, and options with their dashes.
std::vector<std::string> known_words(const CLI::App& app, bool areOptions) {
  std::vector<std::string> words;
  if (areOptions) {
    for (const CLI::Option* option : app.get_options()) {
      for (const std::string& name : option->get_lnames()) {
        words.push_back("--" + name);
      }
    }
    return words;
  }
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    words.push_back(sub->get_name());
  }
  return words;
}

// A message about the first unknown word of the command line; none when all are known.
std::optional<std::string> unexpected_word(const CLI::App& app) {
  const std::vector<std::string> words = app.remaining(true);
  if (words.empty()) {
    return std::nullopt;
  }
  const auto parsed = app.get_subcommands();
  const auto option =
      std::find_if(words.begin(), words.end(), [](const std::string& word) { return word.starts_with("-"); });
  const bool isOption = option != words.end() && !parsed.empty();
  const std::string& word = isOption ? *option : words.front();
  const std::string meant = nearest(word, known_words(parsed.empty() ? app : *parsed.front(), isOption));
  return fmt::format("unknown {} '{}'{}",
                     isOption         ? "option"
                     : parsed.empty() ? "command"
                                      : "word",
                     printable(word), meant.empty() ? "" : fmt::format(", did you mean '{}'?", meant));
}

std::string usage_failure(const CLI::App* app, const CLI::Error& error) {
  return fmt::format(
      "{}\n'mediagrabber --help' lists the commands, 'mediagrabber COMMAND --help' their options.\n",
      unexpected_word(*app).value_or(error.what()));
}

std::string version_text() {
  return fmt::format("mediagrabber {}", MEDIAGRABBER_VERSION);
}

}  // namespace

command_line parse_command_line(int argc, const char* const* argv) {
  command_line result;
  options& to = result.value;
  live_options live;
  CLI::App app("mediagrabber: acquires images from cameras through a camera driver bundle.");
  app.get_formatter()->column_width(30);
  app.set_version_flag("-V,--version", version_text());
  app.require_subcommand(1);
  app.failure_message(usage_failure);
  app.footer(
      "'mediagrabber COMMAND --help' lists a command's options.\n"
      "Exit codes: 0 done, 1 failed, 2 wrong usage or configuration.");

  CLI::App* const run = app.add_subcommand("run", "acquire until stopped");
  CLI::App* const check = app.add_subcommand("check", "acceptance test of the configured cameras");
  CLI::App* const validate = app.add_subcommand("validate", "say what is wrong with a configuration");
  CLI::App* const cameras = app.add_subcommand("cameras", "list the cameras, or say why there are none");
  CLI::App* const features = app.add_subcommand("features", "list, read and write the features of a camera");
  CLI::App* const config =
      app.add_subcommand("config", "write a commented configuration, or that of a camera");
  CLI::App* const address = app.add_subcommand("address", "give a camera a temporary address");
  add_run(*run, to);
  add_live(*run, live);
  add_camera(*features, to, true);
  features->add_option("FEATURE", to.features, "NAME to read, NAME=VALUE to write")->type_name("");
  add_camera(*config, to, false);
  add_camera(*address, to, true);
  address->add_option("IP/MASK", to.address, "as 192.168.0.7/24")->type_name("")->required()->check(kAddress);
  for (CLI::App* each : {run, check, validate, cameras}) {
    add_config(*each, to, each != cameras);
    add_choice_of_cameras(*each, to);
  }
  for (CLI::App* each : {run, check, validate, cameras, features, config, address}) {
    add_common(*each, to);
    add_verbosity(*each, to);
  }
  const std::array commands = {std::pair{command::run, run},           std::pair{command::check, check},
                               std::pair{command::validate, validate}, std::pair{command::cameras, cameras},
                               std::pair{command::features, features}, std::pair{command::config, config},
                               std::pair{command::address, address}};
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    result.exitCode = app.exit(error) == 0 ? 0 : 2;
    return result;
  }
  for (const auto& [what, sub] : commands) {
    if (sub->parsed()) {
      to.what = what;
    }
  }
  if (!live.where.address.empty()) {
    to.live = live;
  }
  return result;
}

}  // namespace host
