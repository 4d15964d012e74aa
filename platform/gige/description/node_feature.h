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

// What the features of one camera share.
struct feature_context {
  register_cache& registers;
  gc_device& device;
  node_graph& graph;
  bool monitoring = false;  // nothing may be written
  bool mayRead = true;      // false while the nodes are made, which sends no commands
};

class node_feature final : public gev::feature {
 public:
  // `node` and `context` outlive this object.
  node_feature(ArvGcFeatureNode* node, gev::value_kind kind, std::string category, feature_context& context);

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
  // A result of ArvGc, valid as long as the revision is the same.
  template <class Result>
  struct cached {
    std::optional<Result> result{};
    revision when = 0;
  };

  const dependencies& sources();
  template <class Result, class Read>
  const Result& cached_or_read(cached<Result>& kept, Read read);
  void begin_access();
  void begin_access(revision oldest);
  std::vector<polled_register> polled_registers();
  template <class Call>
  auto call(Call arvgc);
  bool call_predicate(ArvGcFeatureNode* node, gboolean (*predicate)(ArvGcFeatureNode*, GError**));
  template <class Number, class Node>
  gev::value read_limit(Number (*getter)(Node*, GError**), const gev::value& otherwise);

  gev::value read_value();
  void write_value(const gev::value& to);
  GenApi::EAccessMode read_access();
  bool is_locked();
  void read_entries();
  void refresh_offered_entries();
  bool is_selected(const gev::value& to);
  bool keeps_what_is_written();

  template <class Interface>
  Interface* as() {
    return reinterpret_cast<Interface*>(node_);
  }

  ArvGcFeatureNode* const node_;
  feature_context& context_;
  const std::string name_;
  const gev::value_kind kind_;
  const std::string unit_;
  const std::string category_;
  const std::string description_;
  std::vector<gev::entry> entries_;
  const bool isSelector_;
  const bool hasOptionalEntries_;

  std::optional<dependencies> sources_;  // since the first access
  cached<gev::value> value_;
  cached<GenApi::EAccessMode> access_;
};

// The kind of the node; nothing when it has no value (a category, a command, a port).
std::optional<gev::value_kind> kind_of(ArvGcFeatureNode* node);

}  // namespace gige

#endif
