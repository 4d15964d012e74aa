// A feature of a camera on the network: a node of the camera's description.
#ifndef PLATFORM_GIGE_DESCRIPTION_NODE_FEATURE_H
#define PLATFORM_GIGE_DESCRIPTION_NODE_FEATURE_H

#include <optional>
#include <string>
#include <vector>

#include "platform/gev/feature.h"
#include "platform/gige/description/gc_device.h"
#include "platform/gige/description/node_graph.h"
#include "platform/gige/description/register_cache.h"

namespace gige {

// What all features of a camera share.
struct feature_host {
  register_cache& registers;
  gc_device& device;
  node_graph& graph;
  bool monitoring = false;  // nothing may be written
  bool asking = true;       // the camera may be asked; not while nodes are made of its features
};

class node_feature final : public gev::feature {
 public:
  // The node and the host outlive it.
  node_feature(ArvGcFeatureNode* node, gev::value_kind kind, std::string category, feature_host& host);

  const std::string& name() const override { return name_; }
  gev::value_kind kind() const override { return kind_; }
  const std::string& unit() const override { return unit_; }
  const std::string& category() const override { return category_; }
  const std::string& description() const override { return description_; }
  GenApi::EAccessMode access() override;
  const char* obstacle() override;
  gev::value get(bool ignoreCache) override;
  void set(const gev::value& to) override;
  gev::value min() override;
  gev::value max() override;
  gev::value inc() override;
  const std::vector<gev::entry>& entries() override;

 private:
  // An answer, and until when it was one: with every write, registers may be others.
  template <class Known>
  struct answer {
    std::optional<Known> known{};
    moment when = 0;
  };

  const dependencies& sources();
  template <class Known, class Ask>
  const Known& recall(answer<Known>& memory, Ask ask);
  void begin_question(moment oldest);
  std::vector<moving_register> moving_registers();
  template <class Ask>
  auto answered(Ask ask);
  template <class Number, class Node>
  gev::value limit(Number (*question)(Node*, GError**), const gev::value& otherwise);

  gev::value read_value();
  void write_value(const gev::value& to);
  GenApi::EAccessMode read_access();
  bool is_locked();
  void read_entries();
  void refresh_offered_entries();
  bool already_is(const gev::value& to);
  bool keeps_what_is_written();

  template <class Interface>
  Interface* as() {
    return reinterpret_cast<Interface*>(node_);
  }

  ArvGcFeatureNode* const node_;
  feature_host& host_;
  const std::string name_;
  const gev::value_kind kind_;
  const std::string unit_;
  const std::string category_;
  const std::string description_;
  std::vector<gev::entry> entries_;
  const bool selector_;
  const bool entriesVary_;

  std::optional<dependencies> sources_;  // found out with the first question
  answer<gev::value> value_;
  answer<GenApi::EAccessMode> access_;
};

// The kind of the node; nothing when it has no value (a category, a command, a port).
std::optional<gev::value_kind> kind_of(ArvGcFeatureNode* node);

}  // namespace gige

#endif
