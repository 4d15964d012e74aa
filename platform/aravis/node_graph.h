// How the nodes of a camera's description depend on each other, by GenICam's rules, so that a change of
// one tells which others are to be read again.
#ifndef PLATFORM_ARAVIS_NODE_GRAPH_H
#define PLATFORM_ARAVIS_NODE_GRAPH_H

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/aravis/glib.h"
#include "platform/aravis/wire.h"

namespace gige {

// A register that the camera changes itself.
struct moving_register {
  ArvGcRegister* node;
  std::chrono::milliseconds lifetime;  // 0: to be read each time
};

// All that a node's value, limits and access mode are made of: the nodes that it names, the nodes that those
// name and so on, with the nodes that are declared to invalidate them.
struct dependencies {
  std::vector<std::size_t> nodes;  // itself among them
  std::vector<moving_register> moving;
  bool readBack = false;  // what is written is not known before it is read
};

// The entries of an enumeration, in the description's order.
std::vector<ArvGcFeatureNode*> entry_nodes(ArvGcFeatureNode* enumeration);

// Under the camera's lock.
class node_graph {
 public:
  // The description outlives it.
  explicit node_graph(ArvGc& description);

  // All nodes that have a name, but no entries of enumerations.
  const std::vector<ArvGcFeatureNode*>& nodes() const { return nodes_; }

  dependencies of(ArvGcFeatureNode* node) const;
  // Whether other features have a value for each of its entries.
  bool is_selector(ArvGcFeatureNode* node) const;
  // Whether which of its entries are offered is the camera's to say.
  bool has_optional_entries(ArvGcFeatureNode* node) const;

  // The node was written: it, what it is written through to, and what it selects are of that moment.
  void changed(ArvGcFeatureNode* node, moment when);
  // Anything may have changed.
  void all_changed(moment when) { allChanged_ = when; }
  // The last moment at which one of them was changed.
  moment last_change(const dependencies& of) const;

 private:
  void add(ArvDomNode* element, std::size_t parent);
  // All nodes within reach of the first by the links that `follow` accepts.
  template <class Follow>
  std::vector<std::size_t> reach(std::size_t first, Follow follow) const;

  struct edge {
    std::size_t to;
    ArvGcPropertyNodeType kind;
  };
  void link(std::size_t from, ArvDomNode* element);

  std::vector<ArvGcFeatureNode*> nodes_;
  std::vector<std::size_t> parents_;  // the structure that a node is a part of, or itself
  std::unordered_map<ArvGcNode*, std::size_t> indices_;
  std::vector<std::vector<edge>> edges_;
  std::vector<moment> changes_;
  moment allChanged_ = 0;
};

}  // namespace gige

#endif
