// How the nodes of a camera's description depend on each other, by GenICam's rules, so that a change of
// one tells which others are to be read again.
#ifndef PLATFORM_ARAVIS_NODE_GRAPH_H
#define PLATFORM_ARAVIS_NODE_GRAPH_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
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

// All that a node's value and limits are made of, and with them its access mode: the nodes that it names, the
// nodes that those name and so on, with the nodes that are declared to invalidate them.
struct dependencies {
  struct sources {
    std::vector<std::size_t> nodes;         // itself among them
    std::vector<std::size_t> invalidators;  // those of them upon which the camera changes others
  };
  sources ofValue;
  sources ofAccess;  // those of the value as well
  std::vector<moving_register> moving;
  bool readBack = false;  // what is written is not known before it is read
};

// When a node last became another. What was remembered of it was then outdated; the registers behind it were
// only if the camera may have changed some of them itself.
struct change {
  moment any = 0;
  moment byCamera = 0;
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

  // The node was written: it, what it is written through to, other nodes of the same registers, and what it
  // selects are of that moment.
  void changed(ArvGcFeatureNode* node, moment when);
  // Registers were written past the nodes: those there, and those of which it depends on others where they
  // are, are of that moment.
  void registers_changed(std::uint64_t address, std::uint64_t size, moment when);
  // When one of them last became another.
  change last_change(const dependencies::sources& of) const;

 private:
  void add(ArvDomNode* element, std::size_t parent);
  // All nodes within reach of the first by the links that `follow` accepts.
  template <class Follow>
  std::vector<std::size_t> reach(std::size_t first, Follow follow) const;
  template <class Follow>
  dependencies::sources sources_of(std::size_t node, Follow follow) const;

  struct edge {
    std::size_t to;
    ArvGcPropertyNodeType kind;
  };
  struct span {
    std::uint64_t address = 0;
    std::uint64_t size = 0;
    bool overlaps(const span& other) const {
      return address < other.address + other.size && other.address < address + size;
    }
  };
  std::optional<span> fixed_span(std::size_t at) const;
  void mark_overlapping(const span& with, moment when);
  void link(std::size_t from, ArvDomNode* element);

  std::vector<ArvGcFeatureNode*> nodes_;
  std::vector<std::size_t> parents_;  // the structure that a node is a part of, or itself
  std::unordered_map<ArvGcNode*, std::size_t> indices_;
  std::vector<std::vector<edge>> edges_;
  std::vector<std::optional<span>> spans_;  // of the registers that always are in the same place
  std::vector<change> changes_;
};

}  // namespace gige

#endif
