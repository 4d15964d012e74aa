// How the nodes of a camera's description depend on each other, by the rules of GenICam. From that follows
// which registers the camera may have changed after a write to one node.
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

// What a feature is made of. A feature names other nodes, which name others, down to registers: these are its
// sources.
struct dependencies {
  // Nodes by index: the selectors and invalidators of the sources. After a write to one of them, the camera
  // may have changed a source.
  std::vector<std::size_t> invalidators;
  // A source has an invalidator. A write without a node may have been to that, too.
  bool hasInvalidator = false;

  struct polled_node {
    ArvGcRegister* node;
    std::chrono::milliseconds lifetime;  // 0: read each time
  };
  std::vector<polled_node> polled;  // sources that the camera changes by itself
  bool readBack = false;            // the camera may store another value than the one that is written
};

// The entries of an enumeration, in the description's order.
std::vector<ArvGcFeatureNode*> entry_nodes(ArvGcFeatureNode* enumeration);

// Under the camera's lock.
class node_graph {
 public:
  // The description outlives it.
  explicit node_graph(ArvGc& description);

  // All nodes that have a name, without the entries of enumerations.
  const std::vector<ArvGcFeatureNode*>& nodes() const { return nodes_; }

  dependencies of(ArvGcFeatureNode* node) const;
  // Whether other features have one value for each entry of this node.
  bool is_selector(ArvGcFeatureNode* node) const;
  // Whether the camera decides at run time which entries of this node it offers.
  bool has_optional_entries(ArvGcFeatureNode* node) const;

  // The node was written, and with it the nodes that its value passes through on its way to a register.
  void mark_written(ArvGcFeatureNode* node, revision when);
  // Registers were written by address, without a node.
  void mark_raw_write(revision when) { rawWriteAt_ = when; }
  // The latest write after which the camera may have changed a source. Bytes read since then are valid.
  revision valid_since(const dependencies& of) const;

 private:
  // A link of the description, from the node that has it to the node that it names. A pSelected link runs the
  // other way: from the selected node to its selector.
  struct edge {
    std::size_t to;
    ArvGcPropertyNodeType kind;
  };

  void add(ArvDomNode* element, std::size_t parent);
  void link(std::size_t from, ArvDomNode* element);
  // All nodes that the first one leads to by links that `follow` accepts, itself included.
  template <class Follow>
  std::vector<std::size_t> reach(std::size_t first, Follow follow) const;
  std::vector<dependencies::polled_node> polled_registers(std::size_t of,
                                                          const std::vector<std::size_t>& sources) const;

  std::vector<ArvGcFeatureNode*> nodes_;
  std::vector<std::size_t> parents_;  // the node that a node stands in; SIZE_MAX: none
  std::unordered_map<ArvGcNode*, std::size_t> indices_;
  std::vector<std::vector<edge>> edges_;
  std::vector<bool> selects_;
  std::vector<revision> writtenAt_;
  revision rawWriteAt_ = 0;
};

}  // namespace gige

#endif
