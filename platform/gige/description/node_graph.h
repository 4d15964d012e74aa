// How the nodes of a camera's description depend on each other, by GenICam's rules, so that a write to one
// tells which registers the camera may have changed with it.
#ifndef PLATFORM_GIGE_DESCRIPTION_NODE_GRAPH_H
#define PLATFORM_GIGE_DESCRIPTION_NODE_GRAPH_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/gige/description/glib.h"
#include "platform/gige/description/register_cache.h"

namespace gige {

// What is behind a node: the nodes that it names, those that they name and so on.
struct dependencies {
  // Nodes whose writing may make the camera change a register of these: selectors and invalidators.
  std::vector<std::size_t> disturbers;
  // A register may be changed with any that is written.
  bool invalidated = false;

  struct moving_node {
    ArvGcRegister* node;
    std::chrono::milliseconds lifetime;  // 0: to be read each time
  };
  std::vector<moving_node> moving;  // registers that the camera changes itself
  bool readBack = false;            // what is written is not known before it is read
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

  // The node was written, and with it all that its value is written through to.
  void written(ArvGcFeatureNode* node, moment when);
  // Registers were written without a node.
  void written_past(moment when) { writtenPast_ = when; }
  // The registers that the node depends on are as they were at that moment, or were written by us.
  moment undisturbed_since(const dependencies& of) const;

 private:
  // A link of the description, from the node that has it to the one that it names; with pSelected from the
  // selected node to its selector.
  struct edge {
    std::size_t to;
    ArvGcPropertyNodeType kind;
  };

  void add(ArvDomNode* element, std::size_t parent);
  void link(std::size_t from, ArvDomNode* element);
  // All nodes within reach of the first by the links that `follow` accepts, the first included.
  template <class Follow>
  std::vector<std::size_t> reach(std::size_t first, Follow follow) const;
  std::vector<dependencies::moving_node> moving_registers(std::size_t of,
                                                          const std::vector<std::size_t>& sources) const;

  std::vector<ArvGcFeatureNode*> nodes_;
  std::vector<std::size_t> parents_;  // the structure that a node is a part of
  std::unordered_map<ArvGcNode*, std::size_t> indices_;
  std::vector<std::vector<edge>> edges_;
  std::vector<bool> selects_;
  std::vector<moment> writtenAt_;
  moment writtenPast_ = 0;
};

}  // namespace gige

#endif
