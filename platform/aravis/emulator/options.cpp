#include "platform/aravis/emulator/options.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <set>

#include "platform/aravis/emulator/commands.h"

namespace gvcam {
namespace {

constexpr std::uint32_t smallestSide = 64;
constexpr std::uint32_t largestSide = 16384;
constexpr std::uint32_t widthIncrement = 16;
constexpr std::uint32_t heightIncrement = 4;
constexpr std::size_t longestSerial = 15;
constexpr int badUsage = 2;

// What the options say before the cameras are worked out.
struct raw_options {
  std::vector<std::string> serials;
  std::vector<std::string> addresses;
  std::string interface = "lo";
  std::string sensor = "1280x1024";
  std::string noise = "on";
  std::string picture = "live";
  std::string onClose = "reset";
};

// The IPv4 addresses of an interface, or of all when the name is empty, in the system's order.
std::vector<std::string> addresses_of(const std::string& interface) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return {};
  }
  std::vector<std::string> found;
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET ||
        (!interface.empty() && interface != each->ifa_name)) {
      continue;
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr, text.data(),
              static_cast<socklen_t>(text.size()));
    found.emplace_back(text.data());
  }
  freeifaddrs(list);
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
    return pixels >= smallestSide && pixels <= largestSide && pixels % increment == 0;
  };
  if (!crossed || heightError != std::errc() || stopped != end || !side(setup.width, widthIncrement) ||
      !side(setup.height, heightIncrement)) {
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
    if (serial.empty() || serial.size() > longestSerial || !seen.insert(serial).second) {
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

void work_out(const raw_options& raw, options& wanted) {
  read_sensor(raw.sensor, wanted.setup);
  wanted.setup.noise = raw.noise == "on";
  wanted.setup.still = raw.picture == "still";
  wanted.setup.keepOnClose = raw.onClose == "keep";
  if (wanted.dumpDescription) {
    return;
  }
  const std::vector<std::string> serials = checked_serials(raw);
  const std::vector<std::string> addresses = checked_addresses(raw, serials.size());
  for (std::size_t each = 0; each < serials.size(); ++each) {
    wanted.cameras.push_back({serials[each], addresses[each]});
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
  option("--interface", raw.interface, "NAME", "whose addresses they take otherwise");
  option("--sensor", raw.sensor, "WxH", "pixels");
  option("--fps", setup.framesPerSecond, "HZ", "frame rate at power-up, 0.1 to 1000")
      ->check(unsaid(CLI::Range(0.1, 1000.0)));
  option("--packet-size", setup.packetSize, "BYTES", "of the stream at power-up, 576 to 65532")
      ->check(unsaid(CLI::Range(576, 65532)));
  option("--scene", wanted.scene, "FILE", "a PGM that the cameras look at")->check(unsaid(CLI::ExistingFile));
  choice("--noise", raw.noise, "on", "off", "shot and read noise, on or off");
  choice("--picture", raw.picture, "live", "still", "live, or still: drawn once an acquisition");
  choice("--on-close", raw.onClose, "reset", "keep", "a client's settings when it goes: reset or keep");
  several("--fault", wanted.faults, "COMMAND", "a command as below, from the start");
  option("--xml", setup.description, "FILE", "a GenICam description, for the built-in one")
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
