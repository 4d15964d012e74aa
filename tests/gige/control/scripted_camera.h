// A camera that does what a test says, and the networks that it is in.
#ifndef TESTS_GIGE_CONTROL_SCRIPTED_CAMERA_H
#define TESTS_GIGE_CONTROL_SCRIPTED_CAMERA_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/descriptor.h"
#include "platform/gige_protocol/gvcp.h"

namespace test {

using namespace std::chrono_literals;
namespace protocol = gige_protocol;
using clock_type = std::chrono::steady_clock;

inline void run(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// Networks of the process's own: ours with "near", and the cameras' with "far" at the other end of the cable.
class networks {
 public:
  static networks& instance() {
    static networks one;
    return one;
  }
  // Runs `work` in the cameras' network.
  void among_cameras(const std::function<void()>& work) const {
    ASSERT_EQ(setns(cameras_.get(), CLONE_NEWNET), 0);
    work();
    ASSERT_EQ(setns(ours_.get(), CLONE_NEWNET), 0);
  }

 private:
  networks() {
    cameras_ = enter_new();
    ours_ = enter_new();
    run("ip link add near type veth peer name far netns /proc/" + std::to_string(getpid()) + "/fd/" +
        std::to_string(cameras_.get()));
    run("ip addr add 10.1.0.1/24 dev near && ip addr add 10.2.0.1/24 dev near && ip link set near up");
    among_cameras([] {
      run("for at in 10.1.0.2/24 10.2.0.2/24 10.9.0.9/32; do ip addr add $at dev far; done");
      run("ip link set far up && ip route add default dev far");
    });
  }
  static gige::descriptor enter_new() {
    EXPECT_EQ(unshare(CLONE_NEWNET), 0) << "a network of its own is refused";
    // Answers from subnets without a route are let in.
    run("ip link set lo up");
    run("for which in all default; do echo 0 > /proc/sys/net/ipv4/conf/$which/rp_filter; done");
    return gige::descriptor(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
  }

  gige::descriptor cameras_;
  gige::descriptor ours_;
};

// Answers commands at an address, on a thread of its own, from registers; or as the script wants it. What is
// public is to be used under the lock, or within the script, which has it.
class scripted_camera {
 public:
  // True when it has done with the command, false to leave it to the registers.
  using script = std::function<bool(scripted_camera& camera, const protocol::command& asked)>;

  explicit scripted_camera(std::uint32_t address) {
    const int made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    socket_ = gige::descriptor(made);
    const int on = 1;
    setsockopt(made, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const sockaddr_in here = gige::internet_address(address, protocol::controlPort);
    EXPECT_EQ(bind(made, reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
    thread_ = std::thread([this] { serve(); });
  }
  scripted_camera(const scripted_camera&) = delete;
  scripted_camera& operator=(const scripted_camera&) = delete;
  ~scripted_camera() {
    {
      const std::scoped_lock lock(mutex);
      ended_ = true;
    }
    thread_.join();
  }

  template <class Work>
  auto locked(Work work) {
    const std::scoped_lock lock(mutex);
    return work();
  }
  // Waits until that holds; ten times as long as anything takes here.
  template <class Condition>
  bool until(Condition holds) {
    for (const auto end = clock_type::now() + 20s; clock_type::now() < end;
         std::this_thread::sleep_for(1ms)) {
      if (locked(holds)) {
        return true;
      }
    }
    return false;
  }

  // From now on this script, or, with none, the registers. Once this returns, the script before is not
  // called any more, and what it refers to may go.
  void follow(script next) {
    const std::scoped_lock lock(mutex);
    script_ = std::move(next);
  }

  // Sends to who asked last, from that one of its addresses (0: from where it was asked).
  void answer(protocol::byte_view bytes, std::uint32_t from = 0) const { send(bytes, asking, from); }
  void send(protocol::byte_view bytes, const sockaddr_in& to, std::uint32_t from) const {
    gige::interface_address own;
    own.address = from;
    EXPECT_TRUE(gige::send_from(socket_.get(), own, to, bytes));
  }
  void answer(const protocol::message& message) const { answer(message.view()); }

  std::mutex mutex;
  std::map<std::uint32_t, std::uint32_t> registers;
  std::vector<std::uint16_t> ids;  // of all commands
  sockaddr_in asking{};            // who did last

 private:
  void serve() {
    for (;;) {
      pollfd waiting{socket_.get(), POLLIN, 0};
      const bool came = poll(&waiting, 1, 5) > 0;
      const std::scoped_lock lock(mutex);
      if (ended_) {
        return;
      }
      if (came) {
        take();
      }
    }
  }
  void take() {
    std::array<std::uint8_t, 2000> bytes{};
    socklen_t size = sizeof asking;
    const ssize_t length =
        recvfrom(socket_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&asking), &size);
    const auto asked = protocol::parse_command(std::span(bytes).first(static_cast<std::size_t>(length)));
    ASSERT_TRUE(asked) << asked.reason();
    ids.push_back(asked->id);
    if (!script_ || !script_(*this, *asked)) {
      obey(*asked);
    }
  }
  void obey(const protocol::command& asked) {
    if (const auto read = protocol::parse_read_registers(asked.payload);
        asked.code == protocol::command_code::read_register && read) {
      const std::uint32_t value = registers[(*read)[0]];
      answer(protocol::make_register_values(asked.id, {&value, 1}));
    } else if (asked.code == protocol::command_code::write_register) {
      const auto [address, value] = (*protocol::parse_write_registers(asked.payload))[0];
      registers[address] = value;
      answer(protocol::make_written(protocol::acknowledge_code::write_register, asked.id, 1));
    } else if (asked.code == protocol::command_code::read_memory) {
      answer_memory(asked);
    } else if (asked.code == protocol::command_code::write_memory) {
      const auto block = *protocol::parse_write_memory(asked.payload);
      for (std::uint32_t at = 0; at < block.bytes.size(); at += 4) {
        registers[block.address + at] = protocol::load<std::uint32_t>(block.bytes, at);
      }
      answer(protocol::make_written(protocol::acknowledge_code::write_memory, asked.id, 1));
    }
  }
  void answer_memory(const protocol::command& asked) {
    const auto range = *protocol::parse_read_memory(asked.payload);
    if (range.address % 4 != 0 || range.count % 4 != 0) {
      answer(protocol::make_acknowledge(protocol::acknowledge_code::read_memory, asked.id,
                                        protocol::status::bad_alignment));
      return;
    }
    std::vector<std::uint8_t> bytes(range.count);
    for (std::uint32_t at = 0; at < range.count; at += 4) {
      protocol::store(std::span(bytes), at, registers[range.address + at]);
    }
    answer(protocol::make_memory(asked.id, {.address = range.address, .bytes = bytes}));
  }

  gige::descriptor socket_;
  script script_;
  bool ended_ = false;
  std::thread thread_;
};

// How long `work` takes.
template <class Work>
clock_type::duration duration(Work work) {
  const auto before = clock_type::now();
  work();
  return clock_type::now() - before;
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
