#include "platform/gige/description/node_graph.h"

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

// To the value itself, not to what selects or limits it.
bool leads_to_value(ArvGcPropertyNodeType kind) {
  return kind == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE || kind == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_INDEXED ||
         kind == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_DEFAULT;
}

bool leads_to_selector(ArvGcPropertyNodeType kind) {
  return kind == ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED;
}

// To whatever the value, the limits and the access mode are made of.
bool leads_to_source(ArvGcPropertyNodeType kind) {
  return kind != ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED && kind != ARV_GC_PROPERTY_NODE_TYPE_P_PORT &&
         kind != ARV_GC_PROPERTY_NODE_TYPE_P_FEATURE && kind != ARV_GC_PROPERTY_NODE_TYPE_P_INVALIDATOR;
}

bool decides_access(ArvGcPropertyNodeType kind) {
  return kind == ARV_GC_PROPERTY_NODE_TYPE_P_IS_IMPLEMENTED ||
         kind == ARV_GC_PROPERTY_NODE_TYPE_P_IS_AVAILABLE;
}

// What a node declares about caching.
struct declared_caching {
  bool declared = false;
  bool readBack = false;
  std::optional<std::chrono::milliseconds> lifetime{};  // none: until a write
};

declared_caching caching_of(ArvGcFeatureNode* node) {
  declared_caching found;
  for_each_child(ARV_DOM_NODE(node), [&](ArvDomNode* child) {
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

// A read-only register without a declaration is taken for a measurement, which descriptions tend not to
// declare.
bool is_measured(ArvGcFeatureNode* node) {
  return !caching_of(node).declared &&
         arv_gc_feature_node_get_actual_access_mode(node) == ARV_GC_ACCESS_MODE_RO;
}

void append(std::vector<std::size_t>& to, const std::vector<std::size_t>& more) {
  to.insert(to.end(), more.begin(), more.end());
}

}  // namespace

node_graph::node_graph(ArvGc& description) {
  auto* const root = ARV_DOM_NODE(arv_dom_document_get_document_element(ARV_DOM_DOCUMENT(&description)));
  for_each_child(root, [this](ArvDomNode* child) { add(child, SIZE_MAX); });
  edges_.resize(nodes_.size());
  selects_.resize(nodes_.size());
  writtenAt_.resize(nodes_.size());
  for (std::size_t at = 0; at < nodes_.size(); ++at) {
    if (parents_[at] != SIZE_MAX) {
      edges_[at].push_back({parents_[at], ARV_GC_PROPERTY_NODE_TYPE_P_VALUE});
    }
    for_each_child(ARV_DOM_NODE(nodes_[at]), [&](ArvDomNode* child) { link(at, child); });
  }
}

// Groups, structures and registers hold nodes, too.
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
  // The formula of a register's address stands in the register, without a link.
  if (const auto inside = indices_.find(ARV_GC_NODE(element)); inside != indices_.end()) {
    edges_[from].push_back({inside->second, ARV_GC_PROPERTY_NODE_TYPE_P_ADDRESS});
    return;
  }
  if (!ARV_IS_GC_PROPERTY_NODE(element)) {
    return;
  }
  auto* const property = ARV_GC_PROPERTY_NODE(element);
  const auto target = indices_.find(arv_gc_property_node_get_linked_node(property));
  if (target == indices_.end()) {
    return;
  }
  const auto kind = arv_gc_property_node_get_node_type(property);
  if (kind == ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED) {
    selects_[from] = true;
    edges_[target->second].push_back({from, kind});
  } else {
    edges_[from].push_back({target->second, kind});
  }
}

template <class Follow>
std::vector<std::size_t> node_graph::reach(std::size_t first, Follow follow) const {
  std::vector<bool> seen(nodes_.size());
  seen[first] = true;
  std::vector<std::size_t> reached = {first};
  for (std::size_t next = 0; next < reached.size(); ++next) {
    for (const edge& each : edges_[reached[next]]) {
      if (follow(each.kind) && !seen[each.to]) {
        seen[each.to] = true;
        reached.push_back(each.to);
      }
    }
  }
  return reached;
}

dependencies node_graph::of(ArvGcFeatureNode* node) const {
  const std::size_t self = indices_.at(ARV_GC_NODE(node));
  const std::vector<std::size_t> sources = reach(self, leads_to_source);
  dependencies found{.invalidators = {}, .polled = polled_registers(self, sources)};
  for (const std::size_t source : sources) {
    found.readBack = found.readBack || caching_of(nodes_[source]).readBack;
    for (const edge& each : edges_[source]) {
      if (each.kind == ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED) {
        append(found.invalidators, reach(each.to, leads_to_selector));
      } else if (each.kind == ARV_GC_PROPERTY_NODE_TYPE_P_INVALIDATOR) {
        found.hasInvalidator = true;
        append(found.invalidators, reach(each.to, leads_to_source));
      }
    }
  }
  std::sort(found.invalidators.begin(), found.invalidators.end());
  found.invalidators.erase(std::unique(found.invalidators.begin(), found.invalidators.end()),
                           found.invalidators.end());
  return found;
}

std::vector<dependencies::polled_node> node_graph::polled_registers(
    std::size_t of, const std::vector<std::size_t>& sources) const {
  std::vector<dependencies::polled_node> polled;
  const auto isPolled = [&](std::size_t at, std::chrono::milliseconds lifetime) {
    if (ARV_IS_GC_REGISTER(nodes_[at])) {
      polled.push_back({ARV_GC_REGISTER(nodes_[at]), lifetime});
    }
  };
  for (const std::size_t at : reach(of, leads_to_value)) {
    if (is_measured(nodes_[at])) {
      isPolled(at, std::chrono::milliseconds(0));
    }
  }
  for (const std::size_t at : sources) {
    if (const auto lifetime = caching_of(nodes_[at]).lifetime) {
      for (const std::size_t source : reach(at, leads_to_value)) {
        isPolled(source, *lifetime);
      }
    }
  }
  return polled;
}

bool node_graph::is_selector(ArvGcFeatureNode* node) const {
  return selects_[indices_.at(ARV_GC_NODE(node))];
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

void node_graph::mark_written(ArvGcFeatureNode* node, revision when) {
  for (const std::size_t at : reach(indices_.at(ARV_GC_NODE(node)), leads_to_value)) {
    writtenAt_[at] = when;
  }
}

revision node_graph::valid_since(const dependencies& of) const {
  revision last = of.hasInvalidator ? rawWriteAt_ : 0;
  for (const std::size_t at : of.invalidators) {
    last = std::max(last, writtenAt_[at]);
  }
  return last;
}

}  // namespace gige
