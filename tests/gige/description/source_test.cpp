// Where descriptions come from, and what cannot be fetched.
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
#include "tests/gige/description/described_camera.h"

namespace description_test {
namespace {

using namespace std::chrono_literals;
using gige::description_source;
using ::testing::HasSubstr;

constexpr std::uint32_t loopback = 0x7f000001;

std::string zipped(const std::string& name, const std::string& content) {
  zip_error_t error;
  zip_source_t* const archive = zip_source_buffer_create(nullptr, 0, 0, &error);
  zip_source_keep(archive);
  zip_t* const writer = zip_open_from_source(archive, ZIP_CREATE | ZIP_TRUNCATE, &error);
  zip_file_add(writer, name.c_str(), zip_source_buffer(writer, content.data(), content.size(), 0), 0);
  zip_close(writer);
  zip_source_open(archive);
  std::string bytes(1U << 20, '\0');
  bytes.resize(static_cast<std::size_t>(zip_source_read(archive, bytes.data(), bytes.size())));
  zip_source_free(archive);
  return bytes;
}

// The text of the description_error that `work` raises; empty when it raises none.
template <class Work>
std::string refusal(Work work) {
  try {
    work();
    return "";
  } catch (const gige::description_error& error) {
    return error.what();
  }
}

std::string load(const std::string& url, const gige::source_access& allowed = {}) {
  memory_port camera;
  return gige::load_description(std::array{url}, camera, allowed);
}

TEST(DescriptionUrl, is_read_in_every_form) {
  const auto camera =
      gige::parse_source(std::string("LOCAL:///Cam.zip;1D000;0x3a2f?SchemaVersion=1.0.0\0junk", 48));
  EXPECT_EQ(camera.where, description_source::place::camera);
  EXPECT_EQ(std::tuple(camera.path, camera.address, camera.size), std::tuple("Cam.zip", 0x1d000U, 0x3a2fU));
  const auto http = gige::parse_source("http://192.168.5.10:8080/a/cam.xml");
  EXPECT_EQ(http.where, description_source::place::http);
  EXPECT_EQ(std::tuple(http.host, http.port, http.path), std::tuple(0xc0a8050a, 8080, "/a/cam.xml"));
  EXPECT_EQ(gige::parse_source("http://1.2.3.4").path, "/");
  EXPECT_EQ(gige::parse_source("File:///a/cam.xml").path, "/a/cam.xml");
  EXPECT_EQ(gige::parse_source("file:cam.xml").path, "cam.xml");
}

TEST(DescriptionUrl, is_refused_with_what_would_be_right) {
  for (const auto& [url, words] :
       {std::pair<std::string, const char*>{"", "begins with none of Local:, file: and http:"},
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
    EXPECT_THAT(refusal([&] { gige::parse_source(url); }), HasSubstr(words)) << url;
  }
}

TEST(DescriptionArchive, is_unpacked_or_refused) {
  const std::string archive = zipped("camera.xml", "<a/>");
  EXPECT_EQ(gige::unpack("<a/>" + std::string(3, '\0')), "<a/>");
  EXPECT_EQ(gige::unpack(archive), "<a/>");
  std::string damaged = archive;
  damaged.at(damaged.find("<a/>")) = '?';
  std::string elsewhere = archive;
  elsewhere.replace(elsewhere.size() - 6, 4, "\xff\xff\xff\x7f");  // the place of the directory of files
  const std::string huge = zipped("a.xml", std::string(gige::largestDescription + 1, 'a'));
  for (const auto& [bytes, words] :
       {std::pair(damaged, "is damaged: CRC error"), std::pair(elsewhere, "cannot be opened"),
        std::pair(archive.substr(0, archive.size() / 2), "cannot be opened"),
        std::pair(std::string("PK"), "cannot be opened"),
        std::pair(zipped("readme.txt", "<a/>"), "holds no file NAME.xml"),
        std::pair(huge, "holds more than 16777216 bytes")}) {
    EXPECT_THAT(refusal([&] { gige::unpack(bytes); }), HasSubstr(words));
  }
}

TEST(DescriptionSource, is_the_first_url_that_leads_to_one) {
  memory_port camera;
  const std::string archive = zipped("camera.xml", "<a/>");
  std::ranges::copy(archive, camera.memory.begin() + 0x100);
  std::ostringstream local;
  local << "Local:camera.zip;100;" << std::hex << archive.size();
  const std::array urls{std::string("nonsense"), local.str()};
  EXPECT_EQ(gige::load_description(urls, camera, {}), "<a/>");
  EXPECT_THAT(refusal([&] { gige::load_description(urls, camera, {.directory = {}, .patience = -1ms}); }),
              HasSubstr("before time was up"));
  camera.isSilent = true;
  EXPECT_THROW(gige::load_description(urls, camera, {}), GenICam::TimeoutException);
  const std::array elsewhere{std::string("http://1.2.3.4/x"), std::string("file:/etc/passwd")};
  EXPECT_THAT(
      refusal([&] { gige::load_description(elsewhere, camera, {.camera = loopback, .directory = {}}); }),
      testing::AllOf(HasSubstr("on another host than the camera"),
                     HasSubstr("no directory of descriptions")));
  EXPECT_THAT(refusal([] { load(std::string(512, '\0')); }), HasSubstr("does not say where"));
}

// Catches a way out of the directory.
TEST(DescriptionSource, reads_files_of_one_directory_only) {
  namespace fs = std::filesystem;
  std::string home = fs::temp_directory_path() / "description_test.XXXXXX";
  ASSERT_NE(mkdtemp(home.data()), nullptr);
  fs::create_directory(home + "/allowed");
  fs::create_directory(home + "/allowed2");
  for (const char* file : {"/allowed/camera.xml", "/secret.xml", "/allowed2/secret.xml"}) {
    std::ofstream(home + file) << "<a/>";
  }
  fs::create_symlink(home + "/secret.xml", home + "/allowed/link.xml");
  const gige::source_access allowed{.directory = home + "/allowed"};
  EXPECT_EQ(load("file:camera.xml", allowed), "<a/>");
  EXPECT_EQ(load("file://" + home + "/allowed/camera.xml", allowed), "<a/>");
  for (const std::string& path :
       {std::string("../secret.xml"), "//" + home + "/secret.xml", "//" + home + "/allowed2/secret.xml",
        std::string("link.xml"), std::string("."), std::string("///etc/passwd")}) {
    EXPECT_THAT(refusal([&] { load("file:" + path, allowed); }),
                HasSubstr("the directory that is allowed (GIGE_DESCRIPTION_DIR)"))
        << path;
  }
  EXPECT_THAT(refusal([&] { load("file:none.xml", allowed); }), HasSubstr("No such file"));
  fs::remove_all(home);
}

// An HTTP server for one connection. It answers, and then closes or stays silent.
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
    url = "http://127.0.0.1:" + std::to_string(ntohs(own.sin_port)) + "/camera.xml";
    server_ = std::thread([this] { serve(); });
  }
  ~one_answer() {
    shutdown(listener_, SHUT_RDWR);
    server_.join();
    close(listener_);
  }
  one_answer(const one_answer&) = delete;
  one_answer& operator=(const one_answer&) = delete;

  std::string url;

 private:
  void serve() const {
    const int client = accept(listener_, nullptr, nullptr);
    std::array<char, 1024> request{};
    recv(client, request.data(), request.size() - 1, 0);
    // A client that was cancelled sends nothing.
    EXPECT_THAT(std::string(request.data()), testing::AnyOf("", HasSubstr("GET /camera.xml HTTP/1.0\r\n")));
    send(client, answer_.data(), answer_.size(), MSG_NOSIGNAL);
    if (!closes_) {
      recv(client, request.data(), request.size(), 0);
    }
    close(client);
  }

  const std::string answer_;
  const bool closes_;
  const int listener_;
  std::thread server_;
};

TEST(DescriptionSource, may_be_the_cameras_own_http_server) {
  const gige::source_access allowed{.camera = loopback, .directory = {}};
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n";
  EXPECT_EQ(load(one_answer(head + "<a/>").url, allowed), "<a/>");
  for (const auto& [answer, words] :
       {std::pair<std::string, const char*>{"HTTP/1.1 404 Not Found\r\n\r\n",
                                            "answers 'HTTP/1.1 404 Not Found', right is 200"},
        {"SSH-2.0", "does not answer by HTTP"},
        {head + std::string(gige::largestDescription + 20'000, 'a'), "sends more than"}}) {
    EXPECT_THAT(refusal([&] { load(one_answer(answer).url, allowed); }), HasSubstr(words));
  }
}

TEST(DescriptionSource, is_awaited_until_it_is_late_or_cancelled) {
  const one_answer silent("HTTP/1.1 200 OK\r\n", false);
  EXPECT_THAT(refusal([&] { load(silent.url, {.camera = loopback, .directory = {}, .patience = 10ms}); }),
              HasSubstr("has not sent all in time"));
  const int cancelled = eventfd(1, 0);
  const one_answer other("", false);
  EXPECT_THAT(refusal([&] {
                load(other.url,
                     {.camera = loopback, .directory = {}, .patience = 1h, .cancelled = cancelled});
              }),
              HasSubstr("cancelled"));
  close(cancelled);
}

}  // namespace
}  // namespace description_test
