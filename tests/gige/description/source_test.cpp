// Where descriptions come from, and what cannot be had.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zip.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/gige/description/description_source.h"
#include "platform/gige/description/http.h"
#include "tests/gige/description/memory_port.h"

namespace description_test {
namespace {

using namespace std::chrono_literals;
using gige::description_source;
using ::testing::HasSubstr;

constexpr std::uint32_t loopback = 0x7f000001;

std::string zipped(const std::string& name, const std::string& content) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* const archive = zip_source_buffer_create(nullptr, 0, 0, &error);
  zip_source_keep(archive);
  zip_t* const writer = zip_open_from_source(archive, ZIP_CREATE | ZIP_TRUNCATE, &error);
  zip_file_add(writer, name.c_str(), zip_source_buffer(writer, content.data(), content.size(), 0), 0);
  zip_close(writer);
  zip_source_open(archive);
  std::string bytes(1U << 20, '\0');
  bytes.resize(static_cast<std::size_t>(zip_source_read(archive, bytes.data(), bytes.size())));
  zip_source_close(archive);
  zip_source_free(archive);
  return bytes;
}

// What it raises says, or nothing.
template <class Work>
std::string refusal(Work work) {
  try {
    work();
    return "";
  } catch (const gige::description_error& error) {
    return error.what();
  }
}

TEST(DescriptionUrl, is_read_in_every_form) {
  const auto camera =
      gige::parse_source(std::string("LOCAL:///Cam.zip;1D000;0x3a2f?SchemaVersion=1.0.0\0junk", 48));
  EXPECT_TRUE(camera.where == description_source::place::camera && camera.path == "Cam.zip" &&
              camera.address == 0x1d000 && camera.size == 0x3a2f);
  const auto http = gige::parse_source("http://192.168.5.10:8080/a/cam.xml");
  EXPECT_TRUE(http.where == description_source::place::http && http.host == 0xc0a8050a && http.port == 8080 &&
              http.path == "/a/cam.xml");
  EXPECT_EQ(gige::parse_source("http://1.2.3.4").path, "/");
  EXPECT_EQ(gige::parse_source("File:///a/cam.xml").path, "/a/cam.xml");
  EXPECT_EQ(gige::parse_source("file:cam.xml").path, "cam.xml");
}

TEST(DescriptionUrl, is_refused_with_what_would_be_right) {
  struct hostile {
    std::string url;
    const char* words;
  };
  for (const hostile& each : {hostile{"", "begins with none of Local:, file: and http:"},
                              {"ftp://1.2.3.4/x", "begins with none"},
                              {"Local:x.zip", "Local:NAME;ADDRESS;SIZE"},
                              {"Local:x.zip;12;", "Local:NAME;ADDRESS;SIZE"},
                              {"Local:x.zip;12;34;56", "Local:NAME;ADDRESS;SIZE"},
                              {"Local:x.zip;-12;34", "Local:NAME;ADDRESS;SIZE"},
                              {"Local:x.zip;0;0", "0 bytes, right is 1 to 16777216"},
                              {"Local:x.zip;0;ffffffffffffffff", "bytes, right is 1 to 16777216"},
                              {"Local:x.zip;fffffff0;20", "beyond the camera's 32-bit addresses"},
                              {"file:", "names no file"},
                              {"http://camera.example/x", "http://IPV4-ADDRESS/NAME"},
                              {"http://1.2.3.4:99999/x", "http://IPV4-ADDRESS/NAME"},
                              {"http://1.2.3.4/x\r\nHost: y", "control characters"},
                              {std::string(600, 'x'), "too long"}}) {
    EXPECT_THAT(refusal([&] { gige::parse_source(each.url); }), HasSubstr(each.words)) << each.url;
  }
}

TEST(DescriptionArchive, is_unpacked_or_refused) {
  const std::string archive = zipped("camera.xml", "<a/>");
  EXPECT_EQ(gige::unpack("<a/>" + std::string(3, '\0')), "<a/>");
  EXPECT_EQ(gige::unpack(archive), "<a/>");
  std::string damaged = archive;
  damaged.at(damaged.find("<a/>")) = '?';
  std::string elsewhere = archive;
  elsewhere.replace(elsewhere.size() - 6, 4, "\xff\xff\xff\x7f");  // where the directory of files is
  struct hostile {
    std::string bytes;
    const char* words;
  };
  for (const hostile& each : {hostile{damaged, "is damaged: CRC error"},
                              {elsewhere, "cannot be opened"},
                              {archive.substr(0, archive.size() / 2), "cannot be opened"},
                              {"PK", "cannot be opened"},
                              {zipped("readme.txt", "<a/>"), "holds no file NAME.xml"},
                              {zipped("a.xml", std::string(gige::largestDescription + 1, 'a')),
                               "holds more than 16777216 bytes"}}) {
    EXPECT_THAT(refusal([&] { gige::unpack(each.bytes); }), HasSubstr(each.words));
  }
}

TEST(DescriptionSource, is_the_first_url_that_leads_to_one) {
  memory_port camera;
  const std::string archive = zipped("camera.xml", "<a/>");
  std::copy(archive.begin(), archive.end(), camera.memory.begin() + 0x100);
  const std::string local =
      "Local:camera.zip;100;" + (std::ostringstream() << std::hex << archive.size()).str();
  EXPECT_EQ(gige::load_description(std::array{std::string("nonsense"), local}, camera, {}), "<a/>");
  EXPECT_THAT(refusal([&] {
                gige::load_description(
                    std::array{std::string("http://1.2.3.4/x"), std::string("file:/etc/passwd")}, camera,
                    {.camera = loopback, .directory = {}});
              }),
              testing::AllOf(HasSubstr("on another host than the camera"),
                             HasSubstr("no directory of descriptions")));
  EXPECT_THAT(refusal([&] { gige::load_description(std::array{std::string(512, '\0')}, camera, {}); }),
              HasSubstr("does not say where"));
  camera.silent = true;
  EXPECT_THROW(gige::load_description(std::array{local}, camera, {}), GenICam::TimeoutException);
  camera.silent = false;
  EXPECT_THAT(refusal([&] {
                gige::load_description(std::array{local}, camera, {.directory = {}, .patience = -1ms});
              }),
              HasSubstr("before time was up"));
}

// Catches a way out of the directory.
TEST(DescriptionSource, reads_files_of_one_directory_only) {
  namespace fs = std::filesystem;
  std::string home = fs::temp_directory_path() / "description_test.XXXXXX";
  ASSERT_NE(mkdtemp(home.data()), nullptr);
  fs::create_directory(home + "/allowed");
  fs::create_directory(home + "/allowed2");
  std::ofstream(home + "/allowed/camera.xml") << "<a/>";
  std::ofstream(home + "/secret.xml") << "secret";
  std::ofstream(home + "/allowed2/secret.xml") << "secret";
  fs::create_symlink(home + "/secret.xml", home + "/allowed/link.xml");
  memory_port camera;
  const auto load = [&](const std::string& url) {
    return gige::load_description(std::array{url}, camera, {.directory = home + "/allowed"});
  };
  EXPECT_EQ(load("file:camera.xml"), "<a/>");
  EXPECT_EQ(load("file://" + home + "/allowed/camera.xml"), "<a/>");
  for (const std::string& url : {std::string("file:../secret.xml"), "file://" + home + "/secret.xml",
                                 "file://" + home + "/allowed2/secret.xml", std::string("file:link.xml"),
                                 std::string("file:."), std::string("file:///etc/passwd")}) {
    EXPECT_THAT(refusal([&] { load(url); }),
                HasSubstr("the directory that is allowed (GIGE_DESCRIPTION_DIR)"))
        << url;
  }
  EXPECT_THAT(refusal([&] { load("file:none.xml"); }), HasSubstr("No such file"));
  fs::remove_all(home);
}

// A server for one connection, on loopback: it answers and closes, or is silent until its end.
class one_answer {
 public:
  explicit one_answer(std::string answer, bool closes = true)
      : answer_(std::move(answer)), closes_(closes), listener_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(loopback);
    socklen_t size = sizeof own;
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&own), size), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&own), &size);
    port_ = ntohs(own.sin_port);
    server_ = std::thread([this] { serve(); });
  }
  ~one_answer() {
    shutdown(listener_, SHUT_RDWR);
    server_.join();
    close(listener_);
  }
  one_answer(const one_answer&) = delete;
  one_answer& operator=(const one_answer&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/camera.xml"; }

 private:
  void serve() {
    const int client = accept(listener_, nullptr, nullptr);
    std::array<char, 1024> request{};
    const ssize_t size = recv(client, request.data(), request.size(), 0);
    if (size > 0) {  // the other side may have been tired already
      EXPECT_THAT(std::string(request.data(), static_cast<std::size_t>(size)),
                  HasSubstr("GET /camera.xml HTTP/1.0\r\n"));
    }
    send(client, answer_.data(), answer_.size(), MSG_NOSIGNAL);
    if (!closes_) {
      recv(client, request.data(), request.size(), 0);
    }
    close(client);
  }

  const std::string answer_;
  const bool closes_;
  const int listener_;
  std::uint16_t port_ = 0;
  std::thread server_;
};

std::string load_from(const one_answer& server, const gige::source_access& allowed) {
  memory_port camera;
  return gige::load_description(std::array{server.url()}, camera, allowed);
}

TEST(DescriptionSource, is_the_cameras_own_http_server) {
  const gige::source_access allowed{.camera = loopback, .directory = {}};
  EXPECT_EQ(load_from(one_answer("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n<a/>"), allowed), "<a/>");
  EXPECT_THAT(refusal([&] { load_from(one_answer("HTTP/1.1 404 Not Found\r\n\r\n"), allowed); }),
              HasSubstr("answers 'HTTP/1.1 404 Not Found', right is 200"));
  EXPECT_THAT(refusal([&] { load_from(one_answer("SSH-2.0"), allowed); }),
              HasSubstr("does not answer by HTTP"));
  EXPECT_THAT(
      refusal([&] {
        load_from(one_answer("HTTP/1.1 200 OK\r\n\r\n" + std::string(gige::largestDescription + 20'000, 'a')),
                  allowed);
      }),
      HasSubstr("sends more than"));
}

TEST(DescriptionSource, is_not_waited_for_beyond_time_and_cancelling) {
  gige::source_access allowed{.camera = loopback, .directory = {}, .patience = 10ms};
  const one_answer silent("HTTP/1.1 200 OK\r\n", false);
  EXPECT_THAT(refusal([&] { load_from(silent, allowed); }), HasSubstr("has not sent all in time"));

  const int cancelled = eventfd(1, 0);
  allowed.patience = 1h;
  allowed.cancelled = cancelled;
  const one_answer again("", false);
  EXPECT_THAT(refusal([&] { load_from(again, allowed); }), HasSubstr("cancelled"));
  close(cancelled);
}

}  // namespace
}  // namespace description_test
