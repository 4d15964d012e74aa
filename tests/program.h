// A program that a test runs end to end, and what to look for in its output.
#ifndef TESTS_PROGRAM_H
#define TESTS_PROGRAM_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace tests {

using clock_type = std::chrono::steady_clock;
using words = std::vector<std::string>;

inline bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

inline std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++found;
  }
  return found;
}

inline std::string content(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// The program, started; its standard output and error go to the files `log` with .out and .err, or its error
// to a terminal. One that was not waited for is killed with the test.
class program {
 public:
  program(const std::filesystem::path& log, words line, int terminal = -1)
      : out_(log.string() + ".out"), error_(log.string() + ".err") {
    std::vector<char*> argv;
    for (std::string& word : line) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    for (const auto& old : {out_, error_}) {  // the output of an earlier program
      std::filesystem::remove(old);
    }
    int input[2] = {-1, -1};
    EXPECT_EQ(pipe2(input, O_CLOEXEC), 0);
    input_ = input[1];
    child_ = fork();
    if (child_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(input[0], STDIN_FILENO);
      dup2(open(out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
      dup2(terminal >= 0 ? terminal : open(error_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
           STDERR_FILENO);
      execvp(argv.front(), argv.data());
      _exit(127);
    }
    close(input[0]);
  }
  ~program() {
    close(input_);
    if (child_ > 0) {
      signal(SIGKILL);
      waitpid(child_, nullptr, 0);
    }
  }
  program(const program&) = delete;
  program& operator=(const program&) = delete;

  void signal(int number) const { kill(child_, number); }
  // Gives it a line of standard input.
  void type(const std::string& line) const {
    EXPECT_EQ(write(input_, (line + "\n").data(), line.size() + 1), static_cast<ssize_t>(line.size() + 1));
  }
  // Waits until its output contains the text so many times.
  bool says(const std::string& text, std::size_t times = 1) const {
    return until([&] { return count(out() + error(), text) >= times; });
  }
  static bool until(const std::function<bool()>& isMet) {
    for (const auto end = clock_type::now() + std::chrono::seconds(20); clock_type::now() < end;) {
      if (isMet()) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  // The exit code; -1 when it did not end by itself.
  int wait() {
    int status = -1;
    pid_t ended = 0;
    until([&] { return (ended = waitpid(child_, &status, WNOHANG)) != 0; });
    if (ended != child_) {
      return -1;
    }
    child_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // Sends the signal and gives the seconds until the program has ended, with that exit code or, without one,
  // with any.
  double end(int number, std::optional<int> exitCode = 0) {
    const auto start = clock_type::now();
    signal(number);
    const int code = wait();
    EXPECT_EQ(code, exitCode.value_or(code)) << error();
    return std::chrono::duration<double>(clock_type::now() - start).count();
  }
  std::string out() const { return content(out_); }
  std::string error() const { return content(error_); }

 private:
  std::filesystem::path out_;
  std::filesystem::path error_;
  int input_ = -1;
  pid_t child_ = 0;
};

}  // namespace tests

#endif
