#include "platform/gige/control/discovery.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "core/log.h"
#include "platform/gige/control/addresses.h"
#include "platform/gige/control/inquiry.h"
#include "platform/gige_protocol/gvcp.h"

namespace gige {
namespace {

using std::chrono::milliseconds;
namespace protocol = gige_protocol;

// From the question on: cameras answer within a millisecond or two unless they are set up to be slow.
constexpr milliseconds settleTime(10);

// What a search has found so far. What an answer costs does not grow with how many came before, beyond the
// most that are kept.
class collection {
 public:
  explicit collection(const search& what)
      : preferred_(what.preferred),
        named_(!what.addresses.empty() || !what.preferred.empty()),
        unheardAddresses_(what.addresses),
        unheardSerials_(what.preferred),
        kept_(what.preferred.size() + 1) {}

  // Takes what is a camera's answer, drops what is none.
  void add(const inquiry::answer& came) {
    if (came.content.code != protocol::acknowledge_code::discovery ||
        came.content.result != protocol::status::success) {
      return;
    }
    const auto record = protocol::parse_discovery(came.content.payload);
    if (record && record->ip == came.from) {
      keep({.record = *record,
            .interfaceName = came.over.own.name,
            .ownAddress = came.over.own.address,
            .unreachable = why_unreachable(record->ip, came.over)});
    }
  }

  bool empty() const { return found_.empty(); }
  // Whether all who were named have answered; never when nobody was.
  bool complete() const { return named_ && unheardAddresses_.empty() && unheardSerials_.empty(); }

  std::vector<found_camera> in_order() && {
    std::ranges::sort(found_, {}, [this](const found_camera& each) {
      return std::tuple(preference(each), each.record.ip, each.record.mac);
    });
    return std::move(found_);
  }

 private:
  static std::string why_unreachable(std::uint32_t camera, const inquiry::network& over) {
    if (over.own.reaches(camera)) {
      return "";
    }
    return "its address " + address_text(camera) + " is not in the network of " + text_of(over) + ", mask " +
           address_text(over.own.mask) + "; give it another one";
  }

  void keep(found_camera&& camera) {
    if (camera.unreachable.empty()) {
      std::erase(unheardAddresses_, camera.record.ip);
      std::erase(unheardSerials_, camera.record.serial.view());
    }
    const auto known = std::ranges::find_if(
        found_, [&](const found_camera& other) { return other.record == camera.record; });
    if (known == found_.end()) {
      const std::size_t place = preference(camera);
      if (kept_[place] < (place < preferred_.size() ? mostOfOneSerial : mostCameras)) {
        ++kept_[place];
        found_.push_back(std::move(camera));
      }
    } else if (!known->unreachable.empty()) {
      *known = std::move(camera);
    }
  }

  // Its place among the preferred; behind all of them for the others.
  std::size_t preference(const found_camera& camera) const {
    return static_cast<std::size_t>(std::ranges::find(preferred_, camera.record.serial.view()) -
                                    preferred_.begin());
  }

  const std::vector<std::string>& preferred_;
  const bool named_;
  std::vector<std::uint32_t> unheardAddresses_;
  std::vector<std::string> unheardSerials_;
  std::vector<std::size_t> kept_;  // by preference
  std::vector<found_camera> found_;
};

void explain_none(const inquiry& asked, const search& what) {
  if (asked.networks().empty()) {
    LOG(2, "fail: no network to search, no interface is up with an IPv4 address");
  }
  for (const auto& each : asked.networks()) {
    LOG(2, "fail: no camera answered within %lld ms, asked twice (%s)",
        static_cast<long long>(what.patience.count()), text_of(each).c_str());
  }
}

}  // namespace

std::vector<found_camera> find_cameras(const search& what) {
  const auto start = inquiry::clock::now();
  const inquiry asked(what.interfaces, what.addresses);
  const auto question = protocol::make_discovery(asked.id(), true);
  collection found(what);
  const auto untilComplete = [&](const inquiry::answer& came) {
    found.add(came);
    return !found.complete();
  };
  asked.send(question);
  asked.gather(start + what.patience / 2, untilComplete);
  if (!found.complete()) {
    asked.send(question);
    asked.gather(start + what.patience, untilComplete);
  }
  asked.gather(start + std::min(settleTime, what.patience), [&](const inquiry::answer& came) {
    found.add(came);
    return true;
  });
  if (found.empty()) {
    explain_none(asked, what);
  }
  auto cameras = std::move(found).in_order();
  for (const found_camera& each : cameras) {
    if (!each.unreachable.empty()) {
      LOG(2, "fail: camera %.*s is unreachable: %s", static_cast<int>(each.record.serial.view().size()),
          each.record.serial.view().data(), each.unreachable.c_str());
    }
  }
  return cameras;
}

}  // namespace gige
