// A node map made of features.
#ifndef PLATFORM_GEV_NODE_MAP_H
#define PLATFORM_GEV_NODE_MAP_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/gev/nodes.h"

namespace gev {

// The nodes of one camera by name. Features and owner must outlive it.
class node_map final : public GenApi::INodeMap {
 public:
  explicit node_map(node_owner& owner) : owner_(owner) {}
  // Makes a node for the feature. It replaces an earlier one, whose feature has changed its kind; that one
  // stays valid for callers that still have it. Under the owner's lock.
  void add(feature& of);
  // Takes the owner's lock.
  GenApi::INode* GetNode(const GenICam::gcstring& name) const override;

 private:
  struct name_hash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  node_owner& owner_;
  std::unordered_map<std::string, GenApi::INode*, name_hash, std::equal_to<>> byName_;
  std::vector<std::unique_ptr<GenApi::INode>> nodes_;
};

}  // namespace gev

#endif
