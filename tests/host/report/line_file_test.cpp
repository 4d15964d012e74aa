// Statistics that end in whole lines, whatever they are written to.
#include "host/report/line_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using tests::content;
using tests::count;
using tests::host_files;

TEST_F(host_files, a_file_of_lines_is_mended_and_can_be_moved_away) {
  const auto path = directory / "stats";
  std::ofstream(path) << "{\"a\":1}\n{\"a\":";
  host::line_file file(path);
  file.write("{}");
  EXPECT_EQ(content(path), "{\"a\":1}\n{}\n");
  std::filesystem::rename(path, directory / "old");
  file.reopen();
  file.write("{}");
  EXPECT_EQ(content(path), "{}\n");
  EXPECT_THROW(host::line_file("/dev/full").write("{}"), host::output_error);
  EXPECT_THROW(host::line_file("/nowhere/s"), host::output_error);
}

TEST_F(host_files, a_pipe_that_is_not_read_costs_lines_but_no_time) {
  const auto path = directory / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  host::line_file file(path);
  EXPECT_THROW(file.write("{}"), host::output_error) << "nobody reads yet";
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  const std::string line = "{" + std::string(9997, 'x') + "}";
  const auto fill = [&] {
    for (int at = 0; at < 20; ++at) {
      file.write(line);
    }
  };
  EXPECT_THROW(fill(), host::output_error);
  std::string read(1 << 20, '\0');
  const auto drain = [&] {
    const ssize_t got = ::read(reader, read.data(), read.size());
    return read.substr(0, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  };
  std::string all = drain();
  file.write("{}");
  all += drain();
  close(reader);
  EXPECT_EQ(all.size(), count(all, line + "\n") * 10'000 + 3) << "a line was left in half";
}

}  // namespace
