// A feature of a camera on the network: a node of the camera's description.
#ifndef PLATFORM_ARAVIS_ARV_FEATURE_H
#define PLATFORM_ARAVIS_ARV_FEATURE_H

#include <optional>
#include <string>
#include <vector>

#include "platform/aravis/node_graph.h"
#include "platform/aravis/wire.h"
#include "platform/gev/feature.h"

namespace gige {

// What all features of a camera share.
struct feature_host {
  wire& camera;
  node_graph& graph;
  bool monitoring = false;  // nothing may be written
  bool asking = false;      // the camera may be asked; not while its nodes are made
};

// A value, a limit or an access mode is asked of the camera once and remembered until a write may have
// changed it. What the camera changes itself is not remembered; then the wire is asked each time, which
// knows the registers that did not change.
class arv_feature final : public gev::feature {
 public:
  arv_feature(ArvGcFeatureNode* node, gev::value_kind kind, feature_host& host);

  const std::string& name() const override { return name_; }
  gev::value_kind kind() const override { return kind_; }
  const std::string& unit() const override { return unit_; }
  GenApi::EAccessMode access() override;
  const char* obstacle() override;
  gev::value get(bool ignoreCache) override;
  void set(const gev::value& to) override;
  gev::value min() override;
  gev::value max() override;
  gev::value inc() override;
  const std::vector<gev::entry>& entries() override;

 private:
  template <class Known>
  struct remembered {
    std::optional<Known> known{};
    moment when = 0;
  };

  const dependencies& sources();
  template <class Known, class Ask>
  const Known& recall(remembered<Known>& memory, const change& last, Ask ask);
  template <class Ask>
  auto ask_wire(moment oldest, Ask ask);
  void mark_moving_registers();

  gev::value read_value();
  void write_value(const gev::value& to);
  GenApi::EAccessMode read_access();
  bool is_locked();
  void read_entries();
  void refresh_offered_entries();
  bool already_is(const gev::value& to) const;
  bool keeps_what_is_written();

  template <class Interface>
  Interface* as() {
    return reinterpret_cast<Interface*>(node_);
  }

  ArvGcFeatureNode* const node_;
  feature_host& host_;
  const std::string name_;
  const gev::value_kind kind_;
  std::string unit_;
  std::vector<gev::entry> entries_;
  const bool selector_;
  const bool entriesVary_;

  std::optional<dependencies> sources_;  // found out with the first question
  moment checkedAt_ = 0;                 // the last changes of the sources were looked up then
  change valueChange_;
  change accessChange_;
  moment markedAt_ = 0;

  remembered<gev::value> value_;
  remembered<gev::value> min_;
  remembered<gev::value> max_;
  remembered<gev::value> inc_;
  remembered<GenApi::EAccessMode> access_;
  remembered<bool> offered_;
};

// The kind of the node; nothing when it has no value (a category, a command, a port).
std::optional<gev::value_kind> kind_of(ArvGcFeatureNode* node);

}  // namespace gige

#endif
