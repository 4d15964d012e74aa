#include "platform/gvcam/fault_commands.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace gvcam {
namespace {

template <class number>
number number_from(const std::string& text, number min, number max, const char* what) {
  number value{};
  const bool isHex = text.starts_with("0x");
  const char* const end = text.data() + text.size();
  std::from_chars_result result{};
  if constexpr (std::is_integral_v<number>) {
    result = std::from_chars(text.data() + (isHex ? 2 : 0), end, value, isHex ? 16 : 10);
  } else {
    result = std::from_chars(text.data(), end, value);
  }
  if (result.ec != std::errc() || result.ptr != end || !(value >= min && value <= max)) {
    throw std::invalid_argument("'" + text + "' is not " + what);
  }
  return value;
}

double ratio_from(const std::string& text) {
  return number_from(text, 0.0, 1.0, "a ratio from 0 to 1");
}

bool switch_from(const std::string& text) {
  if (text != "on" && text != "off") {
    throw std::invalid_argument("'" + text + "' is neither on nor off");
  }
  return text == "on";
}

using arguments = std::vector<std::string>;

void set_loss(faults& of, const arguments& given) {
  of.link.loss = ratio_from(given[0]);
  of.link.burst = given.size() < 2 ? 1 : number_from(given[1], 1U, 64U, "a number of packets from 1 to 64");
}

void set_stall(faults& of, const arguments& given) {
  control_faults& control = of.control;
  control.stall =
      std::chrono::milliseconds(number_from(given[1], 0U, 3'600'000U, "a time from 0 to 3600000 ms"));
  control.stallsAll = given[0] == "all";
  if (given[0] == "description") {
    control.stallFirst = descriptionAddress;
    control.stallLast = UINT32_MAX;
  } else if (!control.stallsAll) {
    control.stallFirst =
        number_from(given[0], 0U, UINT32_MAX, "a register like 0xA010, 'all' or 'description'");
    control.stallLast = control.stallFirst + wordSize - 1;
  }
}

struct command {
  std::string_view name;
  std::string_view arguments;  // their names in the help; one in brackets can be left out
  std::string_view help;
  void (*change)(faults& of, const gvcam::arguments& given);  // nullptr: `act` is called instead
  void (*act)(emulated_camera& on) = nullptr;
};

// Commands that set one member.
template <auto member, auto field>
void set_switch(faults& of, const arguments& given) {
  of.*member.*field = switch_from(given[0]);
}
template <auto field>
void set_ratio(faults& of, const arguments& given) {
  of.link.*field = ratio_from(given[0]);
}

constexpr std::array commands = {
    command{"loss", "RATIO [PACKETS]", "loses that part of the stream's packets, PACKETS in a row", set_loss},
    command{"reorder", "RATIO", "that part of the packets is sent up to 8 places late",
            set_ratio<&impairments::reorder>},
    command{"duplicate", "RATIO", "that part of the packets is sent twice",
            set_ratio<&impairments::duplicate>},
    command{"refuse", "RATIO", "that part of the packets is 'not available' for a resend",
            set_ratio<&impairments::refuse>},
    command{"ignore-resends", "on|off", "does not answer resend requests",
            set_switch<&faults::link, &impairments::ignoresResends>},
    command{"silent", "on|off", "sends no frames, but answers commands",
            set_switch<&faults::link, &impairments::isSilent>},
    command{"busy", "on|off", "another client takes control once nobody has it",
            [](faults& of, const arguments& given) { of.isOccupied = switch_from(given[0]); }},
    command{"stall", "WHAT MS", "answers late: a register, 'description' or 'all'", set_stall},
    command{"pending", "on|off", "sends PENDING_ACK while an answer is late",
            set_switch<&faults::control, &control_faults::saysPending>},
    command{"garbage", "on|off", "answers with random bytes",
            set_switch<&faults::control, &control_faults::isGarbage>},
    command{"die", "", "switches off: stops answering and sending", nullptr,
            [](emulated_camera& on) { on.power_off(); }},
    command{"back", "", "switches on again, with power-up settings", nullptr,
            [](emulated_camera& on) { on.power_on(); }}};

const command& command_named(const std::string& name) {
  const auto* const found =
      std::find_if(commands.begin(), commands.end(), [&](const command& each) { return each.name == name; });
  if (found == commands.end()) {
    std::string known;
    for (const command& each : commands) {
      known += (known.empty() ? "" : ", ") + std::string(each.name);
    }
    throw std::invalid_argument("unknown command '" + name + "', known are " + known);
  }
  return *found;
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream text(line);
  std::vector<std::string> words;
  for (std::string word; text >> word;) {
    words.push_back(word);
  }
  return words;
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + word;
  }
  return line;
}

// The words after the command's name. Raises std::invalid_argument when there are too few or too many.
arguments checked_arguments(const command& wanted, const std::vector<std::string>& words) {
  const std::string names(wanted.arguments);
  const std::size_t most = words_of(names).size();
  const std::size_t least = names.ends_with(']') ? most - 1 : most;
  arguments given(words.begin() + 1, words.end());
  if (given.size() < least || given.size() > most) {
    throw std::invalid_argument("'" + std::string(wanted.name) + "' takes " +
                                (most == 0 ? "nothing" : names));
  }
  return given;
}

void apply(const command& wanted, const arguments& given, emulated_camera& to) {
  if (wanted.change == nullptr) {
    wanted.act(to);
    return;
  }
  faults changed = to.current_faults();
  wanted.change(changed, given);
  to.set_faults(changed);
}

}  // namespace

std::string command_help() {
  std::ostringstream help;
  for (const command& each : commands) {
    std::string call = "  " + std::string(each.name) + " " + std::string(each.arguments);
    call.resize(30, ' ');
    help << call << each.help << '\n';
  }
  std::string text = help.str();
  text.pop_back();  // the end of the last line
  return text;
}

void execute_command(const std::string& line, const camera_list& cameras,
                     const std::function<void(const std::string&)>& report) {
  std::vector<std::string> words = words_of(line);
  if (words.empty()) {
    return;
  }
  const auto addressed = [&](const auto& each) { return each->serial() == words.front(); };
  const auto one = std::find_if(cameras.begin(), cameras.end(), addressed);
  if (one != cameras.end()) {
    words.erase(words.begin());
  }
  const command& wanted = command_named(words.empty() ? "" : words.front());
  const arguments given = checked_arguments(wanted, words);
  for (const auto& each : cameras) {
    if (one == cameras.end() || each == *one) {
      apply(wanted, given, *each);
      report(each->serial() + " " + joined(words));
    }
  }
}

}  // namespace gvcam
