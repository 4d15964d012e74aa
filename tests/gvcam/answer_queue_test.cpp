// Answers on their way: at once, late, behind PENDING_ACKs, or spoiled. Time is an argument.
#include "platform/gvcam/answer_queue.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/gvcam/commands.h"

namespace gvcam_test {
namespace {

using namespace std::chrono_literals;
using gvcam::answer_queue;
using gvcam::control_faults;

constexpr gvcam::endpoint client{0x7f000001, 5000};
const message answer = gige_protocol::make_register_values(9, std::array<std::uint32_t, 1>{7});

// How many answers have left at each of these times.
std::vector<std::size_t> leaving(const control_faults& faults, const message& command,
                                 std::initializer_list<gvcam::camera_time> times) {
  answer_queue queue;
  queue.put(client, command.view(), answer, faults, 0s);
  std::vector<std::size_t> counts;
  for (const gvcam::camera_time now : times) {
    counts.push_back(queue.take_due(now).size());
  }
  return counts;
}

TEST(answer_queue, a_stall_holds_up_what_touches_its_registers_and_nothing_else) {
  control_faults faults{.stallFirst = 0xA010, .stallLast = 0xA013, .stall = 2s};
  const std::array<std::uint32_t, 2> several = {0xA000, 0xA010};
  const std::array<gige_protocol::register_write, 2> writes = {{{0xA000, 1}, {0xA010, 1}}};
  const std::array<std::uint8_t, 8> bytes{};
  const struct {
    message command;
    bool isHeldUp;
  } cases[] = {{read_word(9, 0xA010), true},
               {read_word(9, 0xA014), false},
               {gige_protocol::make_read_registers(9, several), true},
               {gige_protocol::make_write_registers(9, writes), true},
               {gige_protocol::make_read_memory(9, {0xA000, 16}), false},
               {gige_protocol::make_read_memory(9, {0xA000, 20}), true},
               {gige_protocol::make_write_memory(9, {0xA00C, bytes}), true},
               {gige_protocol::make_write_memory(9, {0xA014, bytes}), false},
               {gige_protocol::make_discovery(9, false), false}};
  for (const auto& each : cases) {
    EXPECT_EQ(leaving(faults, each.command, {0s, 1999ms, 2s}).front(), each.isHeldUp ? 0U : 1U);
    EXPECT_EQ(leaving(faults, each.command, {1999ms, 2s}).back(), each.isHeldUp ? 1U : 0U);
    faults.stallsAll = true;
    EXPECT_EQ(leaving(faults, each.command, {0s}).front(), 0U);
    faults.stallsAll = false;
  }
}

TEST(answer_queue, pending_acknowledges_come_twice_a_second_until_the_answer_does) {
  answer_queue queue;
  queue.put(client, read_word(9, 0).view(), answer, {.stallsAll = true, .stall = 1200ms, .saysPending = true},
            10s);
  std::vector<int> codes;
  for (auto next = queue.next_due(); next; next = queue.next_due()) {
    for (const answer_queue::parcel& each : queue.take_due(*next)) {
      const auto head = gige_protocol::parse_acknowledge(each.content.view());
      EXPECT_TRUE(each.to == client && head && head->id == 9);
      codes.push_back(static_cast<int>(head->code) * 100000 + static_cast<int>((*next - 10s) / 1ms));
    }
  }
  EXPECT_THAT(codes, testing::ElementsAre(13700000, 13700500, 13701000, 12901200));
}

TEST(answer_queue, garbage_is_as_long_as_the_answer_and_nothing_that_can_be_read) {
  answer_queue queue;
  queue.put(client, read_word(9, 0).view(), answer, {.isGarbage = true}, 0s);
  const auto sent = queue.take_due(0s);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent.front().content.size(), answer.size());
  EXPECT_FALSE(std::ranges::equal(sent.front().content.view(), answer.view()));
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
