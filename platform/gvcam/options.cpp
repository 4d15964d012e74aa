#include "platform/gvcam/options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <set>

#include "platform/gvcam/fault_commands.h"
#include "platform/picture/sensor_limits.h"

namespace gvcam {
namespace {

constexpr std::size_t longestName = 15;  // of serial numbers and user names
constexpr int badUsage = 2;

// The options as texts, before cameras are made of them.
struct option_texts {
  std::vector<std::string> serials;
  std::vector<std::string> addresses;
  std::vector<std::string> macs;
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
  const bool hasCross = widthError == std::errc() && cross != end && *cross == 'x';
  const auto [stopped, heightError] = std::from_chars(hasCross ? cross + 1 : end, end, setup.height);
  const auto side = [](std::uint32_t pixels, std::uint32_t increment) {
    return pixels >= picture::smallestWindowSide && pixels <= picture::largestSensorSide &&
           pixels % increment == 0;
  };
  if (!hasCross || heightError != std::errc() || stopped != end ||
      !side(setup.width, picture::widthIncrement) || !side(setup.height, picture::heightIncrement)) {
    throw CLI::ValidationError("--sensor", "'" + text + "' must be WIDTHxHEIGHT, 64 to 16384 pixels each, " +
                                               "the width in steps of 16, the height in steps of 4");
  }
}

std::vector<std::string> checked_serials(const option_texts& texts) {
  std::vector<std::string> serials = texts.serials;
  for (std::size_t number = 1;
       texts.serials.empty() && number <= std::max<std::size_t>(texts.addresses.size(), 1); ++number) {
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

std::vector<std::string> checked_addresses(const option_texts& texts, std::size_t cameras) {
  const std::vector<std::string> here = addresses_of(texts.addresses.empty() ? texts.interface : "");
  const std::vector<std::string>& chosen = texts.addresses.empty() ? here : texts.addresses;
  if (texts.addresses.empty() && here.size() < cameras) {
    throw CLI::ValidationError("--interface", "'" + texts.interface + "' has too few IPv4 addresses (" +
                                                  joined(here) + "), " + std::to_string(cameras) +
                                                  " needed, one for each camera; 'ip addr add' adds one");
  }
  if (!texts.addresses.empty() && chosen.size() != cameras) {
    throw CLI::ValidationError("--address", "give one for each camera, " + std::to_string(cameras) +
                                                " and not " + std::to_string(chosen.size()));
  }
  for (const std::string& address : chosen) {
    if (std::find(here.begin(), here.end(), address) == here.end()) {
      throw CLI::ValidationError(
          "--address", "'" + address + "' is not an IPv4 address of this machine, which are " + joined(here));
    }
  }
  return chosen;
}

// "02:00:5e:10:00:01". Raises CLI::ValidationError for any other text, and for 0 and a group address, which
// no device can have.
gige_protocol::mac_address read_mac(const std::string& text) {
  gige_protocol::mac_address mac{};
  bool isRight = text.size() == 3 * mac.size() - 1;
  for (std::size_t at = 0; isRight && at < mac.size(); ++at) {
    const char* const digits = text.data() + 3 * at;
    const auto [end, error] = std::from_chars(digits, digits + 2, mac[at], 16);
    isRight = error == std::errc() && end == digits + 2 && (at + 1 == mac.size() || *end == ':');
  }
  const bool isGroup = (mac[0] & 1U) != 0;
  if (!isRight || isGroup || mac == gige_protocol::mac_address{}) {
    throw CLI::ValidationError(
        "--mac", "'" + text + "' must be like 02:00:5e:10:00:01, six bytes of which the " + "first is even");
  }
  return mac;
}

// One for each camera; nothing for those that follow from the serial number.
std::vector<std::optional<gige_protocol::mac_address>> checked_macs(const option_texts& texts,
                                                                    std::size_t cameras) {
  std::vector<std::optional<gige_protocol::mac_address>> macs;
  for (const std::string& text : texts.macs) {
    const gige_protocol::mac_address mac = read_mac(text);
    if (std::find(macs.begin(), macs.end(), mac) != macs.end()) {
      throw CLI::ValidationError("--mac", "'" + text + "' is another camera's");
    }
    macs.emplace_back(mac);
  }
  if (!macs.empty() && macs.size() != cameras) {
    throw CLI::ValidationError("--mac", "give one for each camera, " + std::to_string(cameras) + " and not " +
                                            std::to_string(macs.size()));
  }
  macs.resize(cameras);
  return macs;
}

std::vector<std::string> checked_user_names(const option_texts& texts, std::size_t cameras) {
  std::vector<std::string> names = texts.userNames;
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

void resolve(const option_texts& texts, options& wanted) {
  camera_setup& setup = wanted.setup;
  read_sensor(texts.sensor, setup);
  setup.hasNoise = texts.noise == "on";
  setup.isStill = texts.picture == "still";
  setup.resetsOnClose = texts.onClose == "reset";
  setup.spacing.keepsPacketDelay = texts.packetDelay == "honest";
  setup.canResend = texts.resend == "on";
  setup.hasExtendedIds = texts.ids == "extended";
  setup.hasExtendedChunks = texts.chunks == "extended";
  setup.seed = texts.seed;
  if (wanted.dumpDescription) {
    return;
  }
  const std::vector<std::string> serials = checked_serials(texts);
  const std::vector<std::string> addresses = checked_addresses(texts, serials.size());
  const std::vector<std::string> userNames = checked_user_names(texts, serials.size());
  const auto macs = checked_macs(texts, serials.size());
  for (std::size_t each = 0; each < serials.size(); ++each) {
    wanted.cameras.push_back({serials[each], ip_from(addresses[each]), userNames[each], macs[each]});
  }
}

// A check whose description is not added to the help, which has its own words for it.
template <class Validator>
CLI::Validator silently(Validator check) {
  return static_cast<CLI::Validator&>(check.description(""));
}

void declare(CLI::App& app, option_texts& texts, options& wanted) {
  camera_setup& setup = wanted.setup;
  const auto option = [&](const char* name, auto& target, const char* type, const char* help) {
    return app.add_option(name, target, help)->type_name(type)->capture_default_str();
  };
  const auto several = [&](const char* name, auto& target, const char* type, const char* help) {
    return app.add_option(name, target, help)->type_name(type);
  };
  const auto choice = [&](const char* name, auto& target, const char* first, const char* second,
                          const char* help) {
    option(name, target, "", help)->check(silently(CLI::IsMember({first, second})));
  };
  several("--serial", texts.serials, "TEXT", "a network camera for each serial number")->delimiter(',');
  several("--address", texts.addresses, "IPV4", "where each listens")->delimiter(',');
  several("--mac", texts.macs, "MAC", "of each; follows from the serial number otherwise")->delimiter(',');
  several("--user-name", texts.userNames, "TEXT", "of each, in the same order")->delimiter(',');
  option("--interface", texts.interface, "NAME", "whose addresses they take otherwise");
  option("--sensor", texts.sensor, "WxH", "pixels");
  option("--fps", setup.framesPerSecond, "HZ", "frame rate at power-up, 0.1 to 1000")
      ->check(silently(CLI::Range(0.1, 1000.0)));
  option("--packet-size", setup.packetSize, "BYTES", "of the stream at power-up, 576 to 65532")
      ->check(silently(CLI::Range(576, 65532)));
  option("--scene", wanted.scene, "FILE", "a PGM image in front of the cameras")
      ->check(silently(CLI::ExistingFile));
  choice("--noise", texts.noise, "on", "off", "shot and read noise, on or off");
  choice("--picture", texts.picture, "live", "still", "live, or still: drawn once an acquisition");
  choice("--on-close", texts.onClose, "keep", "reset", "settings when a client loses control: keep or reset");
  choice("--packet-delay", texts.packetDelay, "off", "honest", "as the client sets it: honest, or off");
  choice("--resend", texts.resend, "on", "off", "sends packets again, and announces it: on or off");
  choice("--ids", texts.ids, "standard", "extended", "block ids at power-up: standard (16 bits) or extended");
  choice("--chunks", texts.chunks, "extended", "standard",
         "at power-up: extended (an image with chunks), or standard");
  option("--link-speed", setup.spacing.linkSpeed, "MBIT/S",
         "that packets are spaced for; 0 for as fast as the machine is")
      ->check(silently(CLI::Range(0, 100000)));
  option("--seed", texts.seed, "NUMBER", "of the faults of packets");
  several("--fault", wanted.faults, "COMMAND", "a command as below, at the start");
  option("--xml", wanted.descriptionPath, "FILE", "a GenICam description instead of the built-in one")
      ->check(silently(CLI::ExistingFile));
  app.add_flag("--dump-xml", wanted.dumpDescription, "print the built-in description and end");
  app.footer("Commands on standard input, for one camera with its serial number in front:\n" +
             command_help());
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("gvcam: ") + error.what() + "; see --help\n";
  });
}

}  // namespace

parsed parse(int argc, char** argv) {
  parsed result;
  option_texts texts;
  CLI::App app("", "gvcam");
  declare(app, texts, result.wanted);
  try {
    app.parse(argc, argv);
    resolve(texts, result.wanted);
  } catch (const CLI::ParseError& end) {
    result.exitStatus = app.exit(end) == 0 ? 0 : badUsage;
  }
  return result;
}

}  // namespace gvcam
