#include "platform/aravis/node_graph.h"

#include <algorithm>

namespace gige {
namespace {

template <class Visit>
void for_each_child(ArvDomNode* of, Visit visit) {
  for (ArvDomNode* child = arv_dom_node_get_first_child(of); child != nullptr;
       child = arv_dom_node_get_next_sibling(child)) {
    visit(child);
  }
}

// Where a node's own value is, not counting what chooses or limits it.
bool leads_to_value(ArvGcPropertyNodeType kind) {
  return kind == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE || kind == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_INDEXED ||
         kind == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_DEFAULT;
}

// Writing a node writes where its value is, and gives what it selects another value.
bool leads_to_written(ArvGcPropertyNodeType kind) {
  return leads_to_value(kind) || kind == ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED;
}

// Only a selector is not made of what it names.
bool leads_to_source(ArvGcPropertyNodeType kind) {
  return kind != ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED && kind != ARV_GC_PROPERTY_NODE_TYPE_P_PORT &&
         kind != ARV_GC_PROPERTY_NODE_TYPE_P_FEATURE;
}

bool decides_access(ArvGcPropertyNodeType kind) {
  return kind == ARV_GC_PROPERTY_NODE_TYPE_P_IS_IMPLEMENTED ||
         kind == ARV_GC_PROPERTY_NODE_TYPE_P_IS_AVAILABLE;
}

// A value does not depend on whether it may be written.
bool leads_to_source_of_value(ArvGcPropertyNodeType kind) {
  return leads_to_source(kind) && kind != ARV_GC_PROPERTY_NODE_TYPE_P_IS_LOCKED && !decides_access(kind);
}

// Where a register is.
bool leads_to_place(ArvGcPropertyNodeType kind) {
  return kind == ARV_GC_PROPERTY_NODE_TYPE_P_ADDRESS || kind == ARV_GC_PROPERTY_NODE_TYPE_P_INDEX ||
         kind == ARV_GC_PROPERTY_NODE_TYPE_P_LENGTH;
}

// What an element says of how long a value that was read holds.
struct declared_caching {
  bool declared = false;
  bool readBack = false;
  std::optional<std::chrono::milliseconds> lifetime{};  // nothing when until something is written
};

declared_caching caching_of(ArvDomNode* element) {
  declared_caching found;
  for_each_child(element, [&](ArvDomNode* child) {
    if (!ARV_IS_GC_PROPERTY_NODE(child)) {
      return;
    }
    auto* const property = ARV_GC_PROPERTY_NODE(child);
    const auto kind = arv_gc_property_node_get_node_type(property);
    if (kind == ARV_GC_PROPERTY_NODE_TYPE_CACHABLE) {
      const auto mode = arv_gc_property_node_get_cachable(property, ARV_GC_CACHABLE_WRITE_THROUGH);
      found.declared = true;
      found.readBack = mode != ARV_GC_CACHABLE_WRITE_THROUGH;
      if (mode == ARV_GC_CACHABLE_NO_CACHE) {
        found.lifetime = std::chrono::milliseconds(0);
      }
    } else if (kind == ARV_GC_PROPERTY_NODE_TYPE_POLLING_TIME && !found.lifetime) {
      glib_error ignored;
      found.declared = true;
      found.lifetime = std::chrono::milliseconds(arv_gc_property_node_get_int64(property, ignored.out()));
    }
  });
  return found;
}

// What can only be read is the camera's to change; descriptions tend to forget to say so.
bool is_measured(ArvGcFeatureNode* node) {
  return ARV_IS_GC_REGISTER(node) && !caching_of(ARV_DOM_NODE(node)).declared &&
         arv_gc_feature_node_get_actual_access_mode(node) == ARV_GC_ACCESS_MODE_RO;
}

}  // namespace

node_graph::node_graph(ArvGc& description) {
  auto* const root = ARV_DOM_NODE(arv_dom_document_get_document_element(ARV_DOM_DOCUMENT(&description)));
  for_each_child(root, [this](ArvDomNode* child) { add(child, SIZE_MAX); });
  edges_.resize(nodes_.size());
  changes_.resize(nodes_.size());
  for (std::size_t at = 0; at < nodes_.size(); ++at) {
    if (parents_[at] != SIZE_MAX) {
      edges_[at].push_back({parents_[at], ARV_GC_PROPERTY_NODE_TYPE_P_VALUE});
    }
    for_each_child(ARV_DOM_NODE(nodes_[at]), [&](ArvDomNode* child) { link(at, child); });
  }
  for (std::size_t at = 0; at < nodes_.size(); ++at) {
    spans_.push_back(fixed_span(at));
  }
}

std::optional<node_graph::span> node_graph::fixed_span(std::size_t at) const {
  const auto& links = edges_[at];
  if (!ARV_IS_GC_REGISTER(nodes_[at]) ||
      std::any_of(links.begin(), links.end(), [](const edge& each) { return leads_to_place(each.kind); })) {
    return std::nullopt;
  }
  glib_error none;
  const span found{arv_gc_register_get_address(ARV_GC_REGISTER(nodes_[at]), none.out()),
                   arv_gc_register_get_length(ARV_GC_REGISTER(nodes_[at]), none.out())};
  return found;
}

// Descends through groups and structures, which hold nodes of their own.
void node_graph::add(ArvDomNode* element, std::size_t parent) {
  if (ARV_IS_GC_ENUM_ENTRY(element)) {
    return;
  }
  std::size_t inner = parent;
  if (ARV_IS_GC_FEATURE_NODE(element) &&
      arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(element)) != nullptr) {
    inner = nodes_.size();
    nodes_.push_back(ARV_GC_FEATURE_NODE(element));
    parents_.push_back(parent);
    indices_[ARV_GC_NODE(element)] = inner;
  }
  for_each_child(element, [=, this](ArvDomNode* child) { add(child, inner); });
}

void node_graph::link(std::size_t from, ArvDomNode* element) {
  if (ARV_IS_GC_ENUM_ENTRY(element)) {
    for_each_child(element, [=, this](ArvDomNode* child) { link(from, child); });
    return;
  }
  // An address formula stands in its register without being named.
  if (const auto inside = indices_.find(ARV_GC_NODE(element)); inside != indices_.end()) {
    edges_[from].push_back({inside->second, ARV_GC_PROPERTY_NODE_TYPE_P_ADDRESS});
    return;
  }
  if (!ARV_IS_GC_PROPERTY_NODE(element)) {
    return;
  }
  auto* const property = ARV_GC_PROPERTY_NODE(element);
  const auto target = indices_.find(arv_gc_property_node_get_linked_node(property));
  if (target != indices_.end()) {
    edges_[from].push_back({target->second, arv_gc_property_node_get_node_type(property)});
  }
}

template <class Follow>
std::vector<std::size_t> node_graph::reach(std::size_t first, Follow follow) const {
  std::vector<std::size_t> reached{first};
  std::vector<bool> seen(nodes_.size());
  seen[first] = true;
  for (std::size_t at = 0; at < reached.size(); ++at) {
    for (const edge& each : edges_[reached[at]]) {
      if (follow(each.kind) && !seen[each.to]) {
        seen[each.to] = true;
        reached.push_back(each.to);
      }
    }
  }
  return reached;
}

template <class Follow>
dependencies::sources node_graph::sources_of(std::size_t node, Follow follow) const {
  dependencies::sources found{.nodes = reach(node, follow), .invalidators = {}};
  for (const std::size_t at : found.nodes) {
    for (const edge& each : edges_[at]) {
      if (each.kind == ARV_GC_PROPERTY_NODE_TYPE_P_INVALIDATOR) {
        const auto further = reach(each.to, leads_to_source);
        found.invalidators.insert(found.invalidators.end(), further.begin(), further.end());
      }
    }
  }
  return found;
}

dependencies node_graph::of(ArvGcFeatureNode* node) const {
  const std::size_t self = indices_.at(ARV_GC_NODE(node));
  dependencies found{.ofValue = sources_of(self, leads_to_source_of_value),
                     .ofAccess = sources_of(self, leads_to_source),
                     .moving = {}};
  const auto moves = [&](std::size_t at, std::chrono::milliseconds lifetime) {
    if (ARV_IS_GC_REGISTER(nodes_[at])) {
      found.moving.push_back({ARV_GC_REGISTER(nodes_[at]), lifetime});
    }
  };
  for (const std::size_t at : reach(self, leads_to_value)) {
    if (is_measured(nodes_[at])) {
      moves(at, std::chrono::milliseconds(0));
    }
  }
  for (const std::size_t at : found.ofAccess.nodes) {
    const declared_caching caching = caching_of(ARV_DOM_NODE(nodes_[at]));
    found.readBack = found.readBack || caching.readBack;
    if (caching.lifetime) {
      for (const std::size_t source : reach(at, leads_to_value)) {
        moves(source, *caching.lifetime);
      }
    }
  }
  return found;
}

bool node_graph::is_selector(ArvGcFeatureNode* node) const {
  const auto& links = edges_[indices_.at(ARV_GC_NODE(node))];
  return std::any_of(links.begin(), links.end(),
                     [](const edge& each) { return each.kind == ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED; });
}

std::vector<ArvGcFeatureNode*> entry_nodes(ArvGcFeatureNode* enumeration) {
  std::vector<ArvGcFeatureNode*> entries;
  for_each_child(ARV_DOM_NODE(enumeration), [&](ArvDomNode* child) {
    if (ARV_IS_GC_ENUM_ENTRY(child)) {
      entries.push_back(ARV_GC_FEATURE_NODE(child));
    }
  });
  return entries;
}

bool node_graph::has_optional_entries(ArvGcFeatureNode* node) const {
  bool optional = false;
  for (ArvGcFeatureNode* const entry : entry_nodes(node)) {
    for_each_child(ARV_DOM_NODE(entry), [&](ArvDomNode* child) {
      optional =
          optional || (ARV_IS_GC_PROPERTY_NODE(child) &&
                       decides_access(arv_gc_property_node_get_node_type(ARV_GC_PROPERTY_NODE(child))));
    });
  }
  return optional;
}

// Where the value is we wrote; what is behind a selector the camera has exchanged.
void node_graph::changed(ArvGcFeatureNode* node, moment when) {
  const std::size_t self = indices_.at(ARV_GC_NODE(node));
  const std::vector<std::size_t> written = reach(self, leads_to_value);
  for (const std::size_t at : reach(self, leads_to_written)) {
    const bool ours = std::find(written.begin(), written.end(), at) != written.end();
    changes_[at] = {when, ours ? changes_[at].byCamera : when};
  }
  for (const std::size_t at : written) {
    if (spans_[at]) {
      mark_overlapping(*spans_[at], when);
    }
  }
}

void node_graph::mark_overlapping(const span& with, moment when) {
  for (std::size_t at = 0; at < nodes_.size(); ++at) {
    if (spans_[at] && spans_[at]->overlaps(with)) {
      changes_[at].any = when;
    }
  }
}

void node_graph::registers_changed(std::uint64_t address, std::uint64_t size, moment when) {
  mark_overlapping({address, size}, when);
  for (std::size_t at = 0; at < nodes_.size(); ++at) {
    if (!spans_[at] && ARV_IS_GC_REGISTER(nodes_[at])) {
      changes_[at].any = when;
    }
  }
}

change node_graph::last_change(const dependencies::sources& of) const {
  change last;
  for (const std::size_t at : of.nodes) {
    last.any = std::max(last.any, changes_[at].any);
    last.byCamera = std::max(last.byCamera, changes_[at].byCamera);
  }
  for (const std::size_t at : of.invalidators) {
    last.byCamera = std::max(last.byCamera, changes_[at].any);
  }
  return last;
}

}  // namespace gige
