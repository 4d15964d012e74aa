// The nodes of a node map: the GenApi interfaces over any `feature`.
#ifndef PLATFORM_GEV_NODES_H
#define PLATFORM_GEV_NODES_H

#include <memory>
#include <mutex>
#include <string>

#include "platform/gev/feature.h"

namespace gev {

enum class operation { access, read, write, min, max, inc };

// One access to a feature, before it happens.
struct feature_access {
  operation what = operation::access;
  const std::string* feature = nullptr;
  const std::string* entry = nullptr;  // the entry of an enumeration whose access mode is asked for
  const value* written = nullptr;      // of a write; a text that is to be parsed is still a text
  bool verify = false;
  bool ignoreCache = false;
};

// "write OffsetX", "access ChunkSelector.Gain"
std::string name_of(const feature_access& what);

// The camera that nodes belong to. It sees every access and has the lock under which features are used.
class node_owner {
 public:
  node_owner() = default;
  node_owner(const node_owner&) = delete;
  node_owner& operator=(const node_owner&) = delete;
  virtual ~node_owner() = default;
  // Called once for each access, on its thread, before any check. The lock is held until the access is done.
  // An exception ends the access.
  virtual std::unique_lock<std::mutex> enter(const feature_access& what) = 0;
  // The same lock for looking a node up, which is no access to a feature.
  virtual std::unique_lock<std::mutex> hold() = 0;
};

// The node of a feature, with the interface of the feature's kind. Feature and owner must outlive it.
std::unique_ptr<GenApi::INode> make_node(feature& of, node_owner& owner);

}  // namespace gev

#endif
