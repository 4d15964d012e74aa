// A feature of a simulated camera: its row of the feature table and its current values.
#ifndef PLATFORM_SIM_SIMULATED_FEATURE_H
#define PLATFORM_SIM_SIMULATED_FEATURE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/gev/feature.h"
#include "platform/sim/feature_table.h"

namespace sim {

// The camera that features belong to.
class feature_owner {
 public:
  feature_owner() = default;
  feature_owner(const feature_owner&) = delete;
  feature_owner& operator=(const feature_owner&) = delete;
  virtual ~feature_owner() = default;
  // Why a feature cannot be written at the moment, null when it can. `isLocked`: the feature cannot be
  // written while frames are transferred.
  virtual const char* write_obstacle(bool isLocked) = 0;
  // Called before a value changes, so that frames that are due are exposed with the old value.
  virtual void before_change() = 0;
  // The value of a measured feature for the selector's entry with that number.
  virtual double measure(std::size_t place) = 0;
};

// One feature, used under the camera's lock. Tests can alter what it presents: access mode, limits, kind,
// entries. The camera behind it still refuses by the feature's row (value_refusal.cpp).
class simulated_feature final : public gev::feature {
 public:
  simulated_feature(feature_row row, feature_owner& owner);

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

  // Sets the power-up value, for every entry of the selector.
  void power_up();
  // The value for the selector's entry of that name; for the selected entry when the name is empty.
  double number(std::string_view selected = {});
  std::string text(std::string_view selected = {});
  // Sets the value for the selected entry without checking access mode or limits. A measured feature keeps
  // the value from then on.
  void force(const std::string& text);
  // As sim::alter_feature says; both raise std::invalid_argument. A new kind needs a new node.
  void alter(const std::string& property, const std::string& text);
  void alter_entry(const std::string& entry, const std::string& property, const std::string& text);

  // The features that it depends on (null for none), and whether the maximum that it presents depends on the
  // current window.
  void connect(simulated_feature* selector, simulated_feature* fitsWith, bool liveLimits);

 private:
  std::size_t place(std::string_view selected);
  gev::value current(std::size_t place);
  gev::value of_own_kind(const gev::value& from);
  gev::value camera_max();
  void refuse_beyond_camera(const gev::value& to);

  feature_row row_;
  feature_owner& owner_;
  simulated_feature* selector_ = nullptr;
  simulated_feature* fitsWith_ = nullptr;
  bool liveLimits_ = false;
  std::vector<gev::value> values_;  // one for each entry of the selector

  gev::value_kind kind_;
  std::optional<GenApi::EAccessMode> alteredAccess_;
  std::optional<gev::value> alteredMin_;
  std::optional<gev::value> alteredMax_;
  std::optional<gev::value> alteredInc_;
};

}  // namespace sim

#endif
