#include "tests/gige/stream/assembly_trial.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <memory>

#include "platform/gige/stream/frame_assembler.h"
#include "tests/gige/stream/assembly_model.h"

namespace gige {
namespace {

using namespace std::chrono_literals;
using gige_protocol::id_mode;
using gige_protocol::packet_format;
using gige_protocol::payload_type;
using gige_protocol::status;

struct trial_event {
  enum class kind {
    packet,       // arrives, together with those before it since the last event of another kind
    pause,        // of that many tenths of a millisecond
    deadline,     // the assembler is called when it wants to be
    answer,       // the camera sends the oldest packet that was asked for
    unavailable,  // or says that it does not have it
    starve,       // no memory is lent from here on
    feed,         // or is lent again
    restart,      // a new acquisition
  };
  kind what = kind::packet;
  sent_packet packet{};
  unsigned tenths = 0;
};

struct trial {
  sent_stream camera;
  bool predicted = false;  // bodies are received where the assembler says, as recvmmsg does
  std::vector<trial_event> events{};
};

constexpr std::array states = {status::packet_unavailable, status::packet_and_previous_removed,
                               status::packet_temporarily_unavailable, status::packet_resend, status::error};
constexpr std::array types = {payload_type::image, payload_type::image_with_chunks, payload_type::chunk_data,
                              payload_type::jpeg, payload_type::multi_part};
constexpr std::uint32_t imageTypes = 3;  // those that come first

// Each spoils one field of a packet, some only by chance.
using lie = void (*)(sent_packet& of, const choices& choose);
// clang-format off
constexpr std::array lies = {
    lie{[](auto& of, auto& choose) { of.header.blockId += choose(40) - std::uint64_t{20}; }},
    lie{[](auto& of, auto& choose) { of.header.blockId = 1 + choose(70'000); }},
    lie{[](auto& of, auto& choose) { of.header.packetId = choose(12); }},
    lie{[](auto& of, auto& choose) { of.header.packetId += choose(300); }},
    lie{[](auto& of, auto& choose) { of.header.packetId = largest_packet_id(of.header.ids) - choose(2); }},
    lie{[](auto& of, auto& choose) { of.header.format = static_cast<packet_format>(choose(16)); }},
    lie{[](auto& of, auto& choose) { of.header.state = states[choose(states.size())]; }},
    lie{[](auto& of, auto& choose) { of.header.ids = choose(2) == 0 ? id_mode::standard : id_mode::extended; }},
    lie{[](auto& of, auto& choose) { of.cut = choose(2) == 0 ? cutToRunt : 1 + choose(4); }},
    lie{[](auto& of, auto& choose) { of.bytes = choose(100); }},
    lie{[](auto& of, auto& choose) { of.leader.type = of.trailer.type = types[choose(types.size())]; }},
    lie{[](auto& of, auto& choose) { of.leader.image.width += choose(3); }},
    lie{[](auto& of, auto& choose) { of.leader.image.height += choose(3); }},
    lie{[](auto& of, auto& choose) { of.leader.image.pixelFormat += choose(3); }},
    lie{[](auto& of, auto& choose) { of.leader.image.paddingX = static_cast<std::uint16_t>(choose(3)); }},
    lie{[](auto& of, auto& choose) { of.trailer.height = choose(2) == 0 ? 0 : 1000; }},
    lie{[](auto& of, auto& choose) { of.trailer.payloadSize = of.trailer.chunkSize = choose(7000); }},
};
// clang-format on

void spoil(sent_packet& packet, const choices& choose) {
  lies[choose(lies.size())](packet, choose);
  // What does not fit into the header of the form that it has now.
  packet.header.blockId &= gige_protocol::largest_block_id(packet.header.ids);
  packet.header.packetId &= gige_protocol::largest_packet_id(packet.header.ids);
}

assembly_setup make_setup(const choices& choose) {
  constexpr std::uint32_t mono8 = 0x01080001;
  const bool extended = choose(2) == 0;
  const std::uint32_t headers = extended ? 48 : 36;
  assembly_setup setup{.width = 48 - choose(3) * 20, .height = 116 - choose(3) * 50, .pixelFormat = mono8};
  setup.payloadBytes = std::uint64_t{setup.width} * setup.height + std::uint64_t{choose(3)} * 40;
  setup.packetBytes = headers + 40 + choose(2);
  setup.ids = extended ? id_mode::extended : id_mode::standard;
  setup.cameraResends = choose(4) != 0;
  setup.maxPacketResends = choose(3) * 10;
  setup.resendTimeout = resend_timeout::shortest;
  setup.frameTimeout = std::chrono::milliseconds(1 + choose(10));
  setup.largestBatch = 1 + choose(70);
  return setup;
}

struct impairments {
  std::uint32_t lost;  // percent, as all others
  std::uint32_t twice;
  std::uint32_t overtaken;
  std::uint32_t lied;
  std::uint32_t other;  // events between packets
};

trial_event other_event(const choices& choose) {
  using kind = trial_event::kind;
  constexpr std::array kinds = {kind::pause,  kind::pause,       kind::deadline, kind::deadline, kind::answer,
                                kind::answer, kind::unavailable, kind::starve,   kind::feed};
  if (choose(100) == 0) {
    return {.what = kind::restart};
  }
  return {.what = kinds[choose(kinds.size())], .tenths = choose(choose(10) == 0 ? 100 : 4)};
}

trial make_trial(const choices& choose) {
  trial made{.camera = {make_setup(choose), types[choose(imageTypes)]}, .predicted = choose(2) == 0};
  const impairments each{choose(2) * choose(12), choose(2) * choose(10), choose(2) * choose(10),
                         choose(2) * choose(4), 1 + choose(10)};
  const std::uint64_t largest = gige_protocol::largest_block_id(made.camera.setup.ids);
  std::uint64_t frame = choose(2) == 0 ? 1 : largest - choose(4);
  for (std::uint32_t frames = 9 - choose(8); frames > 0; --frames) {
    const std::uint32_t packets = packets_of(frame, made.camera);
    for (std::uint32_t number = 0; number < packets; ++number) {
      const auto happens = [&](std::uint32_t percent) { return percent > 0 && choose(100) < percent; };
      if (happens(each.other)) {
        made.events.push_back(other_event(choose));
      }
      if (happens(each.lost)) {
        number += choose(4) == 0 ? choose(2 * packets) : 0;  // in bursts, sometimes of the whole frame
        continue;
      }
      trial_event arrival{.packet = true_packet(frame, number, made.camera)};
      const bool payload = arrival.packet.header.format == packet_format::payload;
      if (happens(payload ? each.lied : 10 * each.lied)) {  // there are few others
        spoil(arrival.packet, choose);
      }
      const auto back = happens(each.overtaken) ? choose(20) : 0;
      for (unsigned times = happens(each.twice) ? 2 : 1; times > 0; --times) {
        made.events.insert(made.events.end() - std::min<std::ptrdiff_t>(back, std::ssize(made.events)),
                           arrival);
      }
    }
    made.events.push_back(other_event(choose));
    frame = next_block_id(frame, made.camera.setup.ids);
    if (choose(20) == 0) {  // the camera was out of reach for a while, or starts anew
      frame = choose(2) == 0 ? 1 : std::max<std::uint64_t>((frame + choose(50'000)) & largest, 1);
    }
  }
  return made;
}

// Runs the assembler and the model, and is the owner of the former.
class both final : public frame_owner {
 public:
  explicit both(const trial& what)
      : trial_(what),
        layout_(lay_out(what.camera.setup)),
        model_(what.camera.setup, [this] { return !starved_; }),
        assembler_(what.camera.setup, *this) {}

  std::optional<std::string> run() {
    for (const trial_event& event : trial_.events) {
      happen(event);
    }
    accept_all();
    assembler_.reset();
    note(memory_.empty(), "memory is kept");
    return difference_.empty() ? std::nullopt : std::optional(difference_);
  }

  std::uint8_t* lend() override {
    if (starved_) {
      return nullptr;
    }
    auto memory = std::make_unique<std::uint8_t[]>(trial_.camera.setup.payloadBytes);
    std::uint8_t* place = memory.get();
    memory_[place] = std::move(memory);
    return place;
  }
  void take_back(std::uint8_t* place) override { note(memory_.erase(place) == 1, "other memory comes back"); }
  void end(const ended_frame& frame) override {
    ended_.push_back({frame.outcome, frame.id, frame.timestamp, frame.bytes});
    if (frame.outcome == frame_outcome::whole) {
      for (std::size_t offset = 0; offset < frame.bytes; ++offset) {
        note(frame.place[offset] == content(frame.id, offset), "a wrong byte in a whole frame");
      }
    }
    note((frame.outcome == frame_outcome::refused) == (frame.refusal.what != nullptr), "no reason to refuse");
    if (frame.place != nullptr) {
      take_back(frame.place);
    }
  }
  void request(const packet_range& packets) override {
    requests_.push_back(packets);
    for (std::uint32_t number = packets.first; number <= packets.last; ++number) {
      asked_.emplace_back(packets.blockId, number);
    }
  }

 private:
  void happen(const trial_event& event) {
    using kind = trial_event::kind;
    if (event.what == kind::packet) {
      batch_.push_back(event.packet);
      return;
    }
    accept_all();
    if (event.what == kind::pause) {
      pass(now_ + event.tenths * 100us);
    } else if (event.what == kind::deadline) {
      pass(std::max(now_, assembler_.deadline().value_or(now_)));
    } else if (event.what == kind::answer || event.what == kind::unavailable) {
      answer(event.what == kind::answer);
    } else if (event.what == kind::starve || event.what == kind::feed) {
      starved_ = event.what == kind::starve && !trial_.predicted;  // otherwise memory is lent ahead
    } else {
      assembler_.reset();
      model_.reset();
    }
    compare();
  }

  void pass(moment until) {
    now_ = until;
    assembler_.expire(now_);
    model_.expire(now_);
  }

  void answer(bool available) {
    if (asked_.empty()) {
      return;
    }
    const auto [frame, number] = asked_.front();
    asked_.pop_front();
    batch_.push_back(true_packet(frame, number, trial_.camera));
    if (!available || number >= packets_of(frame, trial_.camera)) {
      batch_.back().header.state = status::packet_unavailable;
    }
  }

  void accept_all() {
    for (std::size_t done = 0; done < batch_.size();) {
      std::vector<std::uint8_t*> places(std::min(batch_.size() - done, trial_.camera.setup.largestBatch));
      places.resize(trial_.predicted ? assembler_.predict(places) : places.size());
      const auto first = batch_.begin() + static_cast<std::ptrdiff_t>(done);
      accept({first, first + std::ssize(places)}, places);
      done += places.size();
    }
    batch_.clear();
  }

  void accept(const std::vector<sent_packet>& packets, const std::vector<std::uint8_t*>& places) {
    std::vector<datagram> received;
    std::vector<std::vector<std::uint8_t>> pieces(2 * packets.size());  // of just their size, for sanitizers
    for (std::size_t index = 0; index < packets.size(); ++index) {
      const auto bytes = bytes_of(packets[index], layout_);
      const auto header = bytes.begin() + static_cast<std::ptrdiff_t>(
                                              std::min(bytes.size(), header_size(trial_.camera.setup.ids)));
      const auto end = std::min(bytes.end(), header + static_cast<std::ptrdiff_t>(assembler_.largest_body()));
      pieces[2 * index].assign(bytes.begin(), header);
      pieces[2 * index + 1].assign(header, end);
      received.push_back({pieces[2 * index].data(), pieces[2 * index + 1].data(), bytes.size()});
      if (trial_.predicted && places[index] != nullptr) {
        received.back().body = places[index];
        std::copy(header, end, places[index]);
      }
    }
    assembler_.accept(received, now_);
    model_.accept(packets, now_);
    compare();
  }

  void compare() {
    note(ended_ == model_.ended, "other frames ended");
    note(requests_ == model_.requests, "other packets were asked for");
    note(assembler_.counters() == model_.counters, "other counts");
    note(assembler_.deadline() == model_.deadline(), "another deadline");
  }

  void note(bool right, const char* otherwise) {
    if (!right && difference_.empty()) {
      difference_ = otherwise;
    }
  }

  const trial& trial_;
  const frame_layout layout_;
  bool starved_ = false;
  assembly_model model_;
  frame_assembler assembler_;
  moment now_{};
  std::vector<sent_packet> batch_;
  std::map<std::uint8_t*, std::unique_ptr<std::uint8_t[]>> memory_;
  std::deque<std::pair<std::uint64_t, std::uint32_t>> asked_;
  std::vector<model_end> ended_;
  std::vector<packet_range> requests_;
  std::string difference_;
};

std::string text_of(const trial_event& event) {
  constexpr std::array names = {"packet",      "pause",  "deadline", "answer",
                                "unavailable", "starve", "feed",     "restart"};
  const gige_protocol::packet_header& header = event.packet.header;
  return names[static_cast<std::size_t>(event.what)] + (' ' + std::to_string(event.tenths)) +
         "/10 ms, packet " + std::to_string(header.blockId) + ':' + std::to_string(header.packetId) + ' ' +
         name_of(header.format) + ", " + gige_protocol::text_of(header.state) + '\n';
}

// Leaves out events as long as what is left still fails, and says what they are.
std::string shrink(trial failing) {
  for (std::size_t length = failing.events.size(); length > 0; length /= 2) {
    for (std::size_t first = 0; first + length <= failing.events.size();) {
      trial less = failing;
      const auto from = less.events.begin() + static_cast<std::ptrdiff_t>(first);
      less.events.erase(from, from + static_cast<std::ptrdiff_t>(length));
      if (both(less).run()) {
        failing = std::move(less);
      } else {
        first += length;
      }
    }
  }
  const assembly_setup& setup = failing.camera.setup;
  std::string text = *both(failing).run() + " with " + std::to_string(setup.payloadBytes) +
                     " bytes in packets of " + std::to_string(setup.packetBytes) + ":\n";
  for (const trial_event& event : failing.events) {
    text += text_of(event);
  }
  return text;
}

}  // namespace

std::string difference_in_trial(const choices& choose) {
  const trial made = make_trial(choose);
  return both(made).run() ? shrink(made) : "";
}

}  // namespace gige
