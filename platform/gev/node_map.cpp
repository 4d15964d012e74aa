#include "platform/gev/node_map.h"

namespace gev {

void node_map::add(feature& of) {
  nodes_.push_back(make_node(of, owner_));
  byName_[of.name()] = nodes_.back().get();
}

GenApi::INode* node_map::GetNode(const GenICam::gcstring& name) const {
  const auto lock = owner_.hold();
  const auto found = byName_.find(std::string_view(name.c_str()));
  return found == byName_.end() ? nullptr : found->second;
}

}  // namespace gev
