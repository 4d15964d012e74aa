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

// From the first DISCOVERY on. Cameras answer within a millisecond or two, unless they are set up to be slow.
constexpr milliseconds settleTime(10);

// The cameras that a search has found so far. At most `mostCameras` and the preferred ones are kept, so the
// cost of an answer is bounded.
class collection {
 public:
  explicit collection(const search& what)
      : preferred_(what.preferred),
        hasNames_(!what.addresses.empty() || !what.preferred.empty()),
        missingAddresses_(what.addresses),
        missingSerials_(what.preferred),
        kept_(what.preferred.size() + 1) {}

  // Drops what is no camera's answer.
  void add(const inquiry::answer& answer) {
    if (answer.content.code != protocol::acknowledge_code::discovery ||
        answer.content.result != protocol::status::success) {
      return;
    }
    const auto record = protocol::parse_discovery(answer.content.payload);
    if (record && record->ip == answer.from) {
      keep({.record = *record,
            .interfaceName = answer.over.own.name,
            .ownAddress = answer.over.own.address,
            .unreachable = why_unreachable(record->ip, answer.over)});
    }
  }

  bool empty() const { return found_.empty(); }
  // True when all named cameras have answered; never without any.
  bool complete() const { return hasNames_ && missingAddresses_.empty() && missingSerials_.empty(); }

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
      std::erase(missingAddresses_, camera.record.ip);
      std::erase(missingSerials_, camera.record.serial.view());
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

  // The place among the preferred serial numbers; their count for other cameras.
  std::size_t preference(const found_camera& camera) const {
    return static_cast<std::size_t>(std::ranges::find(preferred_, camera.record.serial.view()) -
                                    preferred_.begin());
  }

  const std::vector<std::string>& preferred_;
  const bool hasNames_;
  std::vector<std::uint32_t> missingAddresses_;
  std::vector<std::string> missingSerials_;
  std::vector<std::size_t> kept_;  // by preference
  std::vector<found_camera> found_;
};

void log_empty_search(const inquiry& networks, const search& what) {
  if (networks.networks().empty()) {
    LOG(2, "fail: no network to search, no interface is up with an IPv4 address");
  }
  for (const auto& each : networks.networks()) {
    LOG(2, "fail: no camera answered within %lld ms, asked twice (%s)",
        static_cast<long long>(what.patience.count()), text_of(each).c_str());
  }
}

void log_unreachable(const std::vector<found_camera>& cameras) {
  for (const found_camera& each : cameras) {
    if (!each.unreachable.empty()) {
      LOG(2, "fail: camera %.*s is unreachable: %s", static_cast<int>(each.record.serial.view().size()),
          each.record.serial.view().data(), each.unreachable.c_str());
    }
  }
}

}  // namespace

std::vector<found_camera> find_cameras(const search& what) {
  const auto start = inquiry::clock::now();
  const inquiry networks(what.interfaces, what.addresses);
  const auto discovery = protocol::make_discovery(networks.id(), true);
  collection found(what);
  const auto untilComplete = [&](const inquiry::answer& answer) {
    found.add(answer);
    return !found.complete();
  };
  networks.send(discovery);
  networks.gather(start + what.patience / 2, untilComplete);
  if (!found.complete()) {
    networks.send(discovery);
    networks.gather(start + what.patience, untilComplete);
  }
  networks.gather(start + std::min(settleTime, what.patience), [&](const inquiry::answer& answer) {
    found.add(answer);
    return true;
  });
  if (found.empty()) {
    log_empty_search(networks, what);
  }
  auto cameras = std::move(found).in_order();
  log_unreachable(cameras);
  return cameras;
}

}  // namespace gige
