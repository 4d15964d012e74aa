// Answers on their way to the client: at once, late, behind PENDING_ACKs, or spoiled. Time is an argument.
#include "platform/gvcam/answer_queue.h"

#include <gmock/gmock.h>

#include "tests/gvcam/client_commands.h"

namespace gvcam_test {
namespace {

using namespace std::chrono_literals;
using gvcam::answer_queue;
using gvcam::control_faults;

constexpr gvcam::endpoint client{0x7f000001, 5000};
const message answer = gige_protocol::make_register_values(9, std::array<std::uint32_t, 1>{7});

TEST(answer_queue, a_stall_delays_commands_that_touch_its_registers_and_no_others) {
  const control_faults stall{.stallFirst = 0xA010, .stallLast = 0xA013, .stall = 2s};
  const control_faults stallOfAll{.stallsAll = true, .stall = 2s};
  const std::array<std::uint32_t, 2> several = {0xA000, 0xA010};
  const std::array<gige_protocol::register_write, 2> writes = {{{0xA000, 1}, {0xA010, 1}}};
  const std::array<std::uint8_t, 8> bytes{};
  const struct {
    message command;
    control_faults faults;
    bool isLate;
  } cases[] = {{read_word(9, 0xA010), stall, true},
               {read_word(9, 0xA014), stall, false},
               {gige_protocol::make_read_registers(9, several), stall, true},
               {gige_protocol::make_write_registers(9, writes), stall, true},
               {gige_protocol::make_read_memory(9, {0xA000, 16}), stall, false},
               {gige_protocol::make_read_memory(9, {0xA000, 20}), stall, true},
               {gige_protocol::make_write_memory(9, {0xA00C, bytes}), stall, true},
               {gige_protocol::make_write_memory(9, {0xA014, bytes}), stall, false},
               {gige_protocol::make_discovery(9, false), stallOfAll, true}};
  for (const auto& each : cases) {
    answer_queue queue;
    queue.put(client, each.command.view(), answer, each.faults, 0s);
    EXPECT_EQ(queue.take_due(1999ms).size(), each.isLate ? 0U : 1U);
    EXPECT_EQ(queue.take_due(2s).size(), each.isLate ? 1U : 0U);
  }
}

TEST(answer_queue, pending_acknowledges_come_twice_a_second_until_the_answer_does) {
  answer_queue queue;
  queue.put(client, read_word(9, 0).view(), answer, {.stallsAll = true, .stall = 1200ms, .saysPending = true},
            10s);
  std::vector<std::pair<gvcam::camera_time, int>> codes;
  for (auto next = queue.next_due(); next; next = queue.next_due()) {
    for (const answer_queue::datagram& each : queue.take_due(*next)) {
      const auto head = gige_protocol::parse_acknowledge(each.content.view());
      codes.emplace_back(*next - 10s, static_cast<int>(head->code));
      EXPECT_EQ(head->id, 9);
    }
  }
  EXPECT_EQ(codes, (decltype(codes){{0ms, 0x89}, {500ms, 0x89}, {1s, 0x89}, {1200ms, 0x81}}));
}

TEST(answer_queue, a_flood_of_commands_does_not_fill_the_memory) {
  answer_queue queue;
  for (int count = 0; count < 5000; ++count) {
    queue.put(client, read_word(9, 0).view(), answer, {.stallsAll = true, .stall = 1s}, 0s);
  }
  EXPECT_EQ(queue.take_due(1s).size(), 1000U);
}

}  // namespace
}  // namespace gvcam_test
