// What stands between a camera's description and the camera: every register access of the description
// passes here, and the registers that nothing can have changed are not read again.
#ifndef PLATFORM_ARAVIS_WIRE_H
#define PLATFORM_ARAVIS_WIRE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/aravis/glib.h"
#include "platform/aravis/link.h"

namespace gige {

// Counts the changes that we made to a camera; a value is of the moment at which it was read.
using moment = std::uint64_t;

// Aravis' own register cache is kept for each node and not for each address, so that a register behind a
// selector reads as that of another selector entry; hence this one. It is asked through an ArvDevice of its
// own, for which the camera's description is read. Under the camera's lock.
class wire {
 public:
  // Both outlive it.
  wire(ArvDevice& camera, link& owner);
  wire(const wire&) = delete;
  wire& operator=(const wire&) = delete;
  ~wire();

  // The device to read a description for. It must not be used after this object's end.
  ArvDevice* device() { return front_.get(); }

  moment now() const { return now_; }
  // Something was changed; what was read before may be outdated.
  moment advance() { return ++now_; }

  // A new question: from here on registers that were read before that moment are read again.
  void trust_since(moment oldest) {
    trusted_ = oldest;
    written_.reset();
  }
  static constexpr moment nothing = UINT64_MAX;

  // Registers were written past this; they are read again.
  void forget(std::uint64_t address, std::uint32_t size);
  // What the question wrote last, if anything, is what the camera has now: it needs not be read.
  void keep_written();

  // The camera changes that register itself: what was read holds for so long only.
  void expires(std::uint64_t address, std::chrono::milliseconds after) { lifetimes_[address] = after; }

  // Commands that were sent so far.
  std::uint64_t round_trips() const { return roundTrips_; }

 private:
  struct place {
    std::uint64_t address;
    std::uint32_t size;
    bool asRegister;  // read as one number in the processor's byte order
    bool operator<(const place& other) const {
      return std::tie(address, size, asRegister) < std::tie(other.address, other.size, other.asRegister);
    }
  };
  struct content {
    std::vector<std::uint8_t> bytes;
    moment readAt;
    std::chrono::steady_clock::time_point readTime;
  };
  struct front;

  bool fresh(const place& where, const content& known) const;
  template <class Ask>
  bool read(const place& where, void* to, GError** error, Ask ask);
  template <class Tell>
  bool write(const place& where, const void* from, GError** error, Tell tell);
  template <class Command>
  bool send(GError** error, Command command);
  void remember(const place& where, const void* bytes);

  ArvDevice& camera_;
  link& link_;
  owned<ArvDevice> front_;
  moment now_ = 1;
  moment trusted_ = 0;
  std::map<place, content> known_;
  std::optional<std::pair<place, std::vector<std::uint8_t>>> written_;  // by the last command of the question
  std::unordered_map<std::uint64_t, std::chrono::milliseconds> lifetimes_;
  std::uint64_t roundTrips_ = 0;
};

}  // namespace gige

#endif
