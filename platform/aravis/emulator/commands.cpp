#include "platform/aravis/emulator/commands.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace gvcam {
namespace {

double ratio_from(const std::string& text) {
  double ratio = -1;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, ratio);
  if (error != std::errc() || stopped != end || !(ratio >= 0 && ratio <= 1)) {
    throw std::invalid_argument("loss '" + text + "' is no part from 0 to 1");
  }
  return ratio;
}

bool switch_from(const std::string& text) {
  if (text != "on" && text != "off") {
    throw std::invalid_argument("'" + text + "' is neither on nor off");
  }
  return text == "on";
}

struct command {
  std::string_view name;
  std::string_view argument;  // what it is called in the help, empty when there is none
  std::string_view help;
  void (*act)(camera& on, const std::string& argument);
};

constexpr std::array commands = {
    command{"loss", "RATIO", "loses that part of the stream's packets, 0 to 1",
            [](camera& on, const std::string& text) { on.set_loss(ratio_from(text)); }},
    command{"silent", "on|off", "sends no frames, answers otherwise",
            [](camera& on, const std::string& text) { on.set_silent(switch_from(text)); }},
    command{"busy", "on|off", "another client has control, once nobody else has",
            [](camera& on, const std::string& text) { on.set_busy(switch_from(text)); }},
    command{"die", "", "stops answering and sending", [](camera& on, const std::string&) { on.power_off(); }},
    command{"back", "", "comes back from the dead, at power-up settings",
            [](camera& on, const std::string&) { on.power_on(); }}};

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

}  // namespace

std::string command_help() {
  std::ostringstream help;
  for (const command& each : commands) {
    std::string call = "  " + std::string(each.name) + " " + std::string(each.argument);
    call.resize(30, ' ');
    help << call << each.help << '\n';
  }
  std::string text = help.str();
  text.pop_back();  // the end of the last line
  return text;
}

void obey(const std::string& line, const camera_list& cameras,
          const std::function<void(const std::string&)>& tell) {
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
  const bool takesArgument = !wanted.argument.empty();
  if (words.size() != (takesArgument ? 2 : 1)) {
    throw std::invalid_argument("'" + std::string(wanted.name) + "' takes " +
                                (takesArgument ? std::string(wanted.argument) : "nothing"));
  }
  for (const auto& each : cameras) {
    if (one == cameras.end() || each == *one) {
      wanted.act(*each, words.back());
      tell(each->serial() + " " + words.front() + (takesArgument ? " " + words.back() : ""));
    }
  }
}

}  // namespace gvcam
