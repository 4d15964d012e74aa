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

// The nodes of one camera, by name. Features and gate outlive it.
class node_map final : public GenApi::INodeMap {
 public:
  explicit node_map(gate& owner) : gate_(owner) {}
  // Makes a node for the feature. When there was one it is replaced, since the feature became one of
  // another kind, and lives on for those who still hold it. Under the owner's lock.
  void add(feature& of);
  // Takes the owner's lock.
  GenApi::INode* GetNode(const GenICam::gcstring& name) const override;

 private:
  struct name_hash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  gate& gate_;
  std::unordered_map<std::string, GenApi::INode*, name_hash, std::equal_to<>> byName_;
  std::vector<std::unique_ptr<GenApi::INode>> nodes_;
};

}  // namespace gev

#endif
