// gvcam: runs emulated network cameras until SIGTERM or SIGINT.
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "platform/gvcam/built_in_description.h"
#include "platform/gvcam/fault_commands.h"
#include "platform/gvcam/options.h"

namespace gvcam {
namespace {

void report(const std::string& what) {
  std::cout << "gvcam: " << what << std::endl;  // flushed, because scripts wait for the line
}

void report_error(const std::exception& error) {
  std::cerr << "gvcam: " << error.what() << std::endl;
}

// A descriptor that is readable when the program is to end. Called before any thread starts, so that all of
// them block the signals.
int end_signals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  return signalfd(-1, &ends, SFD_CLOEXEC);
}

// Executes the lines of standard input. Its end does not end the program.
class command_reader {
 public:
  int descriptor() const { return isOpen_ ? STDIN_FILENO : -1; }

  void read_some(const camera_list& cameras) {
    std::array<char, 512> text{};
    const ssize_t size = read(STDIN_FILENO, text.data(), text.size());
    isOpen_ = size > 0;
    pending_.append(text.data(), isOpen_ ? static_cast<std::size_t>(size) : 0);
    for (std::size_t end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
      const std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      try {
        execute_command(line, cameras, report);
      } catch (const std::exception& error) {
        report_error(error);
      }
    }
  }

 private:
  bool isOpen_ = true;
  std::string pending_;
};

void run(const camera_list& cameras, int endSignals) {
  command_reader commands;
  for (;;) {
    std::array<pollfd, 2> ready = {pollfd{endSignals, POLLIN, 0}, pollfd{commands.descriptor(), POLLIN, 0}};
    poll(ready.data(), ready.size(), -1);
    if (ready[0].revents != 0) {
      return;
    }
    if (ready[1].revents != 0) {
      commands.read_some(cameras);
    }
  }
}

constexpr std::uintmax_t largestDescription = 64U << 20U;

void read_description(const std::filesystem::path& path, camera_setup& setup) {
  if (path.empty()) {
    setup.description = built_in_description();
    return;
  }
  if (std::filesystem::file_size(path) > largestDescription) {
    throw std::runtime_error("'" + path.string() + "' is larger than 64 MiB, too large for a description");
  }
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  setup.description = text.str();
  setup.descriptionName = path.filename();
}

void run(options& wanted) {
  const int endSignals = end_signals();
  std::signal(SIGPIPE, SIG_IGN);  // standard output may be closed while cameras run
  read_description(wanted.descriptionPath, wanted.setup);
  const picture::scene scene = wanted.scene.empty()
                                   ? picture::scene(wanted.setup.width, wanted.setup.height)
                                   : picture::scene(wanted.scene, wanted.setup.width, wanted.setup.height);
  camera_list cameras;
  for (const camera_identity& each : wanted.cameras) {
    cameras.push_back(std::make_unique<emulated_camera>(each, wanted.setup, scene));
    cameras.back()->power_on();
  }
  for (const std::string& fault : wanted.faults) {
    execute_command(fault, cameras, report);
  }
  for (const auto& camera : cameras) {
    report(camera->serial() + " on " + camera->address());
  }
  run(cameras, endSignals);
}

}  // namespace
}  // namespace gvcam

int main(int argc, char** argv) {
  gvcam::parsed commandLine = gvcam::parse(argc, argv);
  if (commandLine.exitStatus) {
    return *commandLine.exitStatus;
  }
  if (commandLine.wanted.dumpDescription) {
    std::cout << gvcam::built_in_description();
    return 0;
  }
  try {
    gvcam::run(commandLine.wanted);
    return 0;
  } catch (const std::exception& error) {
    gvcam::report_error(error);
    return 1;
  }
}
