#include "platform/gvcam/options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <set>

#include "platform/gvcam/commands.h"
#include "platform/picture/sensor_limits.h"

namespace gvcam {
namespace {

constexpr std::size_t longestName = 15;  // of serial numbers and user names
constexpr int badUsage = 2;

// What the options say before the cameras are worked out.
struct raw_options {
  std::vector<std::string> serials;
  std::vector<std::string> addresses;
  std::vector<std::string> userNames;
  std::string interface = "lo";
  std::string sensor = "1280x1024";
  std::string noise = "on";
  std::string picture = "live";
  std::string onClose = "keep";
  std::string packetDelay = "off";
  std::string resend = "on";
  std::string ids = "standard";
  std::string chunks = "extended";
  std::uint64_t seed = 1;
};

// The IPv4 addresses of an interface, or of all when the name is empty, in the system's order.
std::vector<std::string> addresses_of(const std::string& interface) {
  std::vector<std::string> found;
  for (const local_address& each : local_addresses()) {
    if (interface.empty() || interface == each.interface) {
      found.push_back(text_of(each.ip));
    }
  }
  return found;
}

std::string joined(const std::vector<std::string>& words) {
  return words.empty() ? "none" : CLI::detail::join(words, ", ");
}

void read_sensor(const std::string& text, camera_setup& setup) {
  const char* const end = text.data() + text.size();
  const auto [cross, widthError] = std::from_chars(text.data(), end, setup.width);
  const bool crossed = widthError == std::errc() && cross != end && *cross == 'x';
  const auto [stopped, heightError] = std::from_chars(crossed ? cross + 1 : end, end, setup.height);
  const auto side = [](std::uint32_t pixels, std::uint32_t increment) {
    return pixels >= picture::smallestWindowSide && pixels <= picture::largestSensorSide &&
           pixels % increment == 0;
  };
  if (!crossed || heightError != std::errc() || stopped != end ||
      !side(setup.width, picture::widthIncrement) || !side(setup.height, picture::heightIncrement)) {
    throw CLI::ValidationError("--sensor", "'" + text + "' must be WIDTHxHEIGHT, 64 to 16384 pixels each, " +
                                               "the width in steps of 16, the height in steps of 4");
  }
}

std::vector<std::string> checked_serials(const raw_options& raw) {
  std::vector<std::string> serials = raw.serials;
  for (std::size_t number = 1;
       raw.serials.empty() && number <= std::max<std::size_t>(raw.addresses.size(), 1); ++number) {
    const std::string digits = std::to_string(number);
    serials.push_back("GV" + std::string(6 - std::min<std::size_t>(digits.size(), 6), '0') + digits);
  }
  std::set<std::string> seen;
  for (const std::string& serial : serials) {
    if (serial.empty() || serial.size() > longestName || !seen.insert(serial).second) {
      throw CLI::ValidationError("--serial",
                                 "'" + serial + "' must be 1 to 15 letters long and no other camera's");
    }
  }
  return serials;
}

std::vector<std::string> checked_addresses(const raw_options& raw, std::size_t cameras) {
  const std::vector<std::string> here = addresses_of(raw.addresses.empty() ? raw.interface : "");
  const std::vector<std::string>& chosen = raw.addresses.empty() ? here : raw.addresses;
  if (raw.addresses.empty() && here.size() < cameras) {
    throw CLI::ValidationError("--interface", "'" + raw.interface + "' has too few IPv4 addresses (" +
                                                  joined(here) + "), " + std::to_string(cameras) +
                                                  " needed, one for each camera; 'ip addr add' adds one");
  }
  if (!raw.addresses.empty() && chosen.size() != cameras) {
    throw CLI::ValidationError("--address", "give one for each camera, " + std::to_string(cameras) +
                                                " and not " + std::to_string(chosen.size()));
  }
  for (const std::string& address : chosen) {
    if (std::find(here.begin(), here.end(), address) == here.end()) {
      throw CLI::ValidationError(
          "--address", "'" + address + "' is no IPv4 address of this machine, those are " + joined(here));
    }
  }
  return chosen;
}

std::vector<std::string> checked_user_names(const raw_options& raw, std::size_t cameras) {
  std::vector<std::string> names = raw.userNames;
  for (const std::string& name : names) {
    if (name.size() > longestName) {
      throw CLI::ValidationError("--user-name", "'" + name + "' must be at most 15 letters long");
    }
  }
  if (names.size() > cameras) {
    throw CLI::ValidationError("--user-name", "give at most one for each camera");
  }
  names.resize(cameras);
  return names;
}

void work_out(const raw_options& raw, options& wanted) {
  camera_setup& setup = wanted.setup;
  read_sensor(raw.sensor, setup);
  setup.hasNoise = raw.noise == "on";
  setup.isStill = raw.picture == "still";
  setup.resetsOnClose = raw.onClose == "reset";
  setup.hasHonestDelay = raw.packetDelay == "honest";
  setup.canResend = raw.resend == "on";
  setup.hasExtendedIds = raw.ids == "extended";
  setup.hasExtendedChunks = raw.chunks == "extended";
  setup.seed = raw.seed;
  if (wanted.dumpDescription) {
    return;
  }
  const std::vector<std::string> serials = checked_serials(raw);
  const std::vector<std::string> addresses = checked_addresses(raw, serials.size());
  const std::vector<std::string> userNames = checked_user_names(raw, serials.size());
  for (std::size_t each = 0; each < serials.size(); ++each) {
    wanted.cameras.push_back({serials[each], ip_from(addresses[each]), userNames[each]});
  }
}

// The help names what is allowed in words of its own.
template <class Validator>
CLI::Validator unsaid(Validator check) {
  return static_cast<CLI::Validator&>(check.description(""));
}

void declare(CLI::App& app, raw_options& raw, options& wanted) {
  camera_setup& setup = wanted.setup;
  const auto option = [&](const char* name, auto& target, const char* type, const char* help) {
    return app.add_option(name, target, help)->type_name(type)->capture_default_str();
  };
  const auto several = [&](const char* name, auto& target, const char* type, const char* help) {
    return app.add_option(name, target, help)->type_name(type);
  };
  const auto choice = [&](const char* name, auto& target, const char* first, const char* second,
                          const char* help) {
    option(name, target, "", help)->check(unsaid(CLI::IsMember({first, second})));
  };
  several("--serial", raw.serials, "TEXT", "a network camera for each serial number")->delimiter(',');
  several("--address", raw.addresses, "IPV4", "where each listens")->delimiter(',');
  several("--user-name", raw.userNames, "TEXT", "of each, in the same order")->delimiter(',');
  option("--interface", raw.interface, "NAME", "whose addresses they take otherwise");
  option("--sensor", raw.sensor, "WxH", "pixels");
  option("--fps", setup.framesPerSecond, "HZ", "frame rate at power-up, 0.1 to 1000")
      ->check(unsaid(CLI::Range(0.1, 1000.0)));
  option("--packet-size", setup.packetSize, "BYTES", "of the stream at power-up, 576 to 65532")
      ->check(unsaid(CLI::Range(576, 65532)));
  option("--scene", wanted.scene, "FILE", "a PGM that the cameras look at")->check(unsaid(CLI::ExistingFile));
  choice("--noise", raw.noise, "on", "off", "shot and read noise, on or off");
  choice("--picture", raw.picture, "live", "still", "live, or still: drawn once an acquisition");
  choice("--on-close", raw.onClose, "keep", "reset", "a client's settings when it goes: keep or reset");
  choice("--packet-delay", raw.packetDelay, "off", "honest", "that the client asks for: off, or honest");
  choice("--resend", raw.resend, "on", "off", "packets are sent again, and that is announced: on or off");
  choice("--ids", raw.ids, "standard", "extended", "of frames at power-up: standard (16 bits) or extended");
  choice("--chunks", raw.chunks, "extended", "standard",
         "at power-up: extended (an image with chunks), or standard");
  option("--link-speed", setup.linkSpeed, "MBIT/S",
         "that the stream keeps to; 0 for as fast as the machine is")
      ->check(unsaid(CLI::Range(0, 100000)));
  option("--seed", raw.seed, "NUMBER", "of what happens to packets");
  several("--fault", wanted.faults, "COMMAND", "a command as below, from the start");
  option("--xml", wanted.descriptionPath, "FILE", "a GenICam description, for the built-in one")
      ->check(unsaid(CLI::ExistingFile));
  app.add_flag("--dump-xml", wanted.dumpDescription, "print the built-in description and end");
  app.footer("Commands on standard input, for one camera with its serial number in front:\n" +
             command_help());
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("gvcam: ") + error.what() + "; --help tells more\n";
  });
}

}  // namespace

parsed parse(int argc, char** argv) {
  parsed result;
  raw_options raw;
  CLI::App app("", "gvcam");
  declare(app, raw, result.wanted);
  try {
    app.parse(argc, argv);
    work_out(raw, result.wanted);
  } catch (const CLI::ParseError& end) {
    result.exitStatus = app.exit(end) == 0 ? 0 : badUsage;
  }
  return result;
}

}  // namespace gvcam
