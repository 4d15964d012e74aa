// The nodes of a node map: the GenApi interfaces over any `feature`.
#ifndef PLATFORM_GEV_NODES_H
#define PLATFORM_GEV_NODES_H

#include <memory>
#include <mutex>
#include <string>

#include "platform/gev/feature.h"

namespace gev {

enum class operation { access, read, write, min, max, inc };

// One access to a feature, as it is about to happen.
struct feature_access {
  operation what = operation::access;
  const std::string* feature = nullptr;
  const std::string* entry = nullptr;  // the entry of an enumeration whose access mode is asked for
  const value* written = nullptr;      // of a write; a text that came as one is still that text
  bool verify = false;
  bool ignoreCache = false;
};

// "write OffsetX", "access ChunkSelector.Gain"
std::string name_of(const feature_access& what);

// What the owner of the nodes sees and decides of every access.
class gate {
 public:
  gate() = default;
  gate(const gate&) = delete;
  gate& operator=(const gate&) = delete;
  virtual ~gate() = default;
  // Called once for each access, on its thread, before its effect and before any check. It may raise
  // what the access shall end with. What it returns is held until the access is done.
  virtual std::unique_lock<std::mutex> enter(const feature_access& what) = 0;
  // The same lock for looking at the nodes themselves, which is no access to a feature.
  virtual std::unique_lock<std::mutex> hold() = 0;
};

// The node for a feature of that kind. It refers to both as long as it lives.
std::unique_ptr<GenApi::INode> make_node(feature& of, gate& owner);

}  // namespace gev

#endif
