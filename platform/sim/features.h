// The features of one simulated camera: its rows of the table and the values they have now.
#ifndef PLATFORM_SIM_FEATURES_H
#define PLATFORM_SIM_FEATURES_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/gev/feature.h"
#include "platform/sim/description.h"
#include "platform/sim/feature_table.h"

namespace sim {

// What the features need of the camera that has them.
class feature_host {
 public:
  feature_host() = default;
  feature_host(const feature_host&) = delete;
  feature_host& operator=(const feature_host&) = delete;
  virtual ~feature_host() = default;
  // Why nothing can be written just now, or, of a locked feature, why that cannot; null when it can.
  virtual const char* write_obstacle(bool locked) = 0;
  // Before a value changes, so that what lies before the change is done with the old one.
  virtual void before_change() = 0;
  // What a measured feature measures at that place, an index among its selector's entries.
  virtual double measure(std::size_t place) = 0;
};

// One feature. What it presents (access, limits, kind, entries) can be altered; the camera behind it keeps
// refusing by its own row. All under the camera's lock.
class camera_feature final : public gev::feature {
 public:
  camera_feature(feature_row row, feature_host& host);

  const std::string& name() const override { return row_.name; }
  gev::value_kind kind() const override { return kind_; }
  const std::string& unit() const override { return row_.unit; }
  const std::string& category() const override { return row_.category; }
  GenApi::EAccessMode access() override;
  const char* obstacle() override;
  gev::value get(bool ignoreCache) override;
  void set(const gev::value& to) override;
  gev::value min() override;
  gev::value max() override;
  gev::value inc() override;
  const std::vector<gev::entry>& entries() override { return row_.entries; }

  // Puts the power-up value back, for every entry of the selector.
  void power_up();
  // The value of the selector's entry of that name, of the selected one when it is empty.
  double number(std::string_view selected = {});
  std::string text(std::string_view selected = {});
  // Sets the selected value whatever limits and access say. A measured feature stays where it is set.
  void force(const std::string& text);
  // See sim::alter_feature; both raise std::invalid_argument. A new kind needs a new node.
  void alter(const std::string& property, const std::string& text);
  void alter_entry(const std::string& entry, const std::string& property, const std::string& text);

  // Which features it depends on, and whether the limits of a window follow the window of the moment.
  void connect(camera_feature* selector, camera_feature* fitsWith, bool liveLimits);

 private:
  std::size_t place(std::string_view selected);
  gev::value current(std::size_t place);
  gev::value converted(const gev::value& from);
  gev::value camera_max();
  void refuse_beyond_camera(const gev::value& to);

  feature_row row_;
  feature_host& host_;
  camera_feature* selector_ = nullptr;
  camera_feature* fitsWith_ = nullptr;
  bool liveLimits_ = false;
  std::vector<gev::value> values_;  // one for each entry of the selector

  gev::value_kind kind_;
  std::optional<GenApi::EAccessMode> alteredAccess_;
  std::optional<gev::value> alteredMin_;
  std::optional<gev::value> alteredMax_;
  std::optional<gev::value> alteredInc_;
};

// All features of a camera.
class camera_features {
 public:
  camera_features(const camera_description& camera, feature_host& host);
  // Raises std::invalid_argument when there is no such feature in the table.
  camera_feature& at(std::string_view name);
  // Those that the camera has; null for one that is missing.
  camera_feature* present(std::string_view name);
  // In the order of the table.
  void for_each_present(const std::function<void(camera_feature&)>& visit);
  void power_up();

 private:
  std::map<std::string, camera_feature, std::less<>> features_;
  std::vector<std::string> missing_;
};

}  // namespace sim

#endif
