#include "platform/aravis/emulator/gvcp_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace gvcam {
namespace {

constexpr std::uint16_t controlPort = 3956;

constexpr std::uint16_t keyAndFlags = 0x4201;  // GVCP, with an answer wanted
constexpr std::uint16_t discoveryCommand = 0x0002;
constexpr std::uint16_t readRegisterCommand = 0x0080;
constexpr std::uint16_t writeRegisterCommand = 0x0082;

constexpr std::size_t headSize = 8;
constexpr std::size_t idAt = 6;
constexpr std::size_t serialAt = headSize + 0xD8;  // a discovery is answered with the first registers
constexpr std::size_t serialSize = 16;
constexpr std::size_t longestAnswer = 576;
constexpr int answerMs = 1000;

sockaddr_in endpoint(const std::string& address, std::uint16_t port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &made.sin_addr);
  return made;
}

const sockaddr* generic(const sockaddr_in& from) {
  return reinterpret_cast<const sockaddr*>(&from);
}

}  // namespace

std::string control_port_obstacle(const std::string& address) {
  const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in wanted = endpoint(address, controlPort);
  const bool bound = probe >= 0 && bind(probe, generic(wanted), sizeof wanted) == 0;
  const int error = errno;
  close(probe);
  return bound ? "" : std::strerror(error);
}

gvcp_client::gvcp_client(const std::string& address)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  const sockaddr_in camera = endpoint(address, controlPort);
  if (socket_ < 0 || connect(socket_, generic(camera), sizeof camera) != 0) {
    const int error = errno;
    close(socket_);
    throw std::system_error(error, std::generic_category(), "no socket to " + address);
  }
}

gvcp_client::~gvcp_client() {
  close(socket_);
}

std::string gvcp_client::discover() {
  const std::string answer = ask(discoveryCommand, {});
  return answer.size() < serialAt + serialSize ? "" : answer.substr(serialAt, serialSize).c_str();
}

bool gvcp_client::read_register(std::uint32_t at) {
  return !ask(readRegisterCommand, {at}).empty();
}

bool gvcp_client::write_register(std::uint32_t at, std::uint32_t value) {
  return !ask(writeRegisterCommand, {at, value}).empty();
}

std::string gvcp_client::ask(std::uint16_t command, const std::vector<std::uint32_t>& words) {
  lastId_ = lastId_ == UINT16_MAX ? std::uint16_t{1} : static_cast<std::uint16_t>(lastId_ + 1);
  const auto size = static_cast<std::uint16_t>(words.size() * sizeof(std::uint32_t));
  std::vector<std::uint32_t> packet = {htonl(std::uint32_t{keyAndFlags} << 16 | command),
                                       htonl(std::uint32_t{size} << 16 | lastId_)};
  for (const std::uint32_t word : words) {
    packet.push_back(htonl(word));
  }
  // What cannot be sent is as lost as what the network drops.
  (void)send(socket_, packet.data(), packet.size() * sizeof packet[0], 0);
  pollfd readable{socket_, POLLIN, 0};
  while (poll(&readable, 1, answerMs) == 1) {
    std::array<char, longestAnswer> answer{};
    const ssize_t received = recv(socket_, answer.data(), answer.size(), 0);
    const std::uint16_t id = htons(lastId_);
    // Others are late answers to what was asked before.
    if (received >= static_cast<ssize_t>(headSize) && std::memcmp(&answer[idAt], &id, sizeof id) == 0) {
      return {answer.data(), static_cast<std::size_t>(received)};
    }
  }
  return "";
}

}  // namespace gvcam
