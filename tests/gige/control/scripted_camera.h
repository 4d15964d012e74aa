// A camera that follows a script, and the network that it is in.
#ifndef TESTS_GIGE_CONTROL_SCRIPTED_CAMERA_H
#define TESTS_GIGE_CONTROL_SCRIPTED_CAMERA_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/descriptor.h"
#include "platform/gige_protocol/gvcp.h"

namespace test {

using namespace std::chrono_literals;
namespace protocol = gige_protocol;
using clock_type = std::chrono::steady_clock;

// Moves the process to a network namespace of its own, where all of 127.0.0.0/8, 10.1.0.0/24, 10.2.0.0/24 and
// 10.9.0.9 is this machine. 10.9.0.9 is in no subnet of an interface.
inline void enter_own_network() {
  static const bool entered = unshare(CLONE_NEWNET) == 0;
  ASSERT_TRUE(entered) << "a network namespace of its own is refused";
  static const int setUp = std::system(
      "ip link set lo up && ip addr add 10.1.0.1/24 dev lo && ip addr add 10.2.0.1/24 dev lo &&"
      "ip route add local 10.9.0.9 dev lo");
  ASSERT_EQ(setUp, 0);
}

// Answers commands at an address, on its own thread: by the script, or from a memory that holds registers,
// too. A script runs under the lock, which all functions take. Public members are used under the lock.
class scripted_camera {
 public:
  // True when it has dealt with the command; false leaves the command to the memory.
  using script = std::function<bool(scripted_camera& camera, const protocol::command& received)>;

  explicit scripted_camera(std::uint32_t address)
      : socket_((enter_own_network(), socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))) {
    const sockaddr_in own = gige::internet_address(address, protocol::controlPort);
    EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    thread_ = std::jthread([this](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        serve();
      }
    });
  }

  template <class Work>
  auto locked(Work work) {
    const std::scoped_lock lock(mutex_);
    return work();
  }
  // Waits until the condition holds. The limit is for hangs.
  template <class Condition>
  bool until(Condition holds) {
    const auto end = clock_type::now() + 30s;
    while (!locked(holds) && clock_type::now() < end) {
      std::this_thread::sleep_for(1ms);
    }
    return locked(holds);
  }

  // Replaces the script; an empty one leaves all commands to the memory. The earlier script is not called
  // after this returns.
  void follow(script next) {
    locked([&] { script_ = std::move(next); });
  }
  void fall_silent() {
    follow([](auto&, auto&) { return true; });
  }
  void put(std::uint32_t address, std::uint32_t value) {
    locked([&] { protocol::store(std::span(memory), address, value); });
  }
  std::uint32_t get(std::uint32_t address) {
    return locked([&] { return protocol::load<std::uint32_t>(memory, address); });
  }

  // Sends to the latest client, from that address of the camera (0: from the one that got the command).
  void answer(const protocol::message& message, std::uint32_t from = 0) const {
    send(message.view(), client, from);
  }
  void send(protocol::byte_view bytes, const sockaddr_in& to, std::uint32_t from) const {
    const gige::interface_address own{.name = {}, .address = from};
    EXPECT_TRUE(gige::send_from(socket_.get(), own, to, bytes)) << std::strerror(errno);
  }

  std::vector<std::uint8_t> memory = std::vector<std::uint8_t>(0x4000);
  std::vector<std::uint16_t> ids;  // of all commands
  sockaddr_in client{};            // sender of the latest command

 private:
  void serve() {
    pollfd readable{socket_.get(), POLLIN, 0};
    if (poll(&readable, 1, 5) == 0) {
      return;
    }
    const std::scoped_lock lock(mutex_);
    std::array<std::uint8_t, 2000> bytes{};
    socklen_t size = sizeof client;
    const ssize_t length =
        recvfrom(socket_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&client), &size);
    const auto received = protocol::parse_command(std::span(bytes).first(static_cast<std::size_t>(length)));
    ASSERT_TRUE(received) << received.reason();
    ids.push_back(received->id);
    if (!script_ || !script_(*this, *received)) {
      obey(*received);
    }
  }
  void obey(const protocol::command& received) {
    using protocol::command_code;
    const auto id = received.id;
    if (received.code == command_code::read_register) {
      const std::uint32_t value = get((*protocol::parse_read_registers(received.payload))[0]);
      answer(protocol::make_register_values(id, {&value, 1}));
    } else if (received.code == command_code::read_memory) {
      const auto range = *protocol::parse_read_memory(received.payload);
      EXPECT_EQ(range.address % 4 + range.count % 4, 0U) << "whole words only";
      const auto bytes = std::span(memory).subspan(range.address, range.count);
      answer(protocol::make_memory(id, {.address = range.address, .bytes = bytes}));
    } else {
      if (received.code == command_code::write_register) {
        const auto [address, value] = (*protocol::parse_write_registers(received.payload))[0];
        put(address, value);
      } else {
        const auto block = *protocol::parse_write_memory(received.payload);
        std::ranges::copy(block.bytes, memory.begin() + block.address);
      }
      answer(protocol::make_written(protocol::acknowledge_of(received.code), id, 1));
    }
  }

  std::recursive_mutex mutex_;
  gige::descriptor socket_;
  script script_;
  std::jthread thread_;
};

// Fails when `work` waits for what it should not wait for. The limit leaves room for a busy machine.
template <class Work>
void expect_no_wait(Work work) {
  const auto start = clock_type::now();
  work();
  EXPECT_LT(clock_type::now() - start, 10s);
}

// The text of the exception of that kind that `work` raises.
template <class Error, class Work>
std::string raised(Work work) {
  try {
    work();
  } catch (const Error& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was raised";
  return "";
}

}  // namespace test

#endif
