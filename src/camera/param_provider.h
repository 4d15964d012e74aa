// How feature parameters and controls reach the camera's features.
#ifndef SRC_CAMERA_PARAM_PROVIDER_H
#define SRC_CAMERA_PARAM_PROVIDER_H

#include <GenApi/GenApi.h>

#include "core/errors.h"
#include "core/log.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// Gives the camera's node map. Implemented by the camera connection; whoever keeps one does not own it.
class param_provider_like {
 public:
  virtual ~param_provider_like() = default;
  /// The node map, owned by the camera library; null when there is none.
  virtual GenApi::CNodeMapRef* getDevParams() = 0;
};

/// The provider's node map; without one, level 1 "fail: param_provider_like::getDevParams" and
/// internal_error.
inline GenApi::CNodeMapRef& requireNodeMap(param_provider_like* provider, caller where = caller::here()) {
  GenApi::CNodeMapRef* nodeMap = provider->getDevParams();
  if (nodeMap == nullptr) {
    LOG_FROM(where, 1, "fail: param_provider_like::getDevParams");
    throw internal_error();
  }
  return *nodeMap;
}

/// The feature `name` as an Interface; null when it is absent or of another type. A reference that holds no
/// node map raises GenICam::AccessException.
template <class Interface>
Interface* findNode(const GenApi::CNodeMapRef& nodeMap, const char* name) {
  return dynamic_cast<Interface*>(nodeMap._GetNode(name));
}

/// As findNode; an absent feature is level 1 "fail: INodeMap::GetNode (name:%s)" and internal_error.
template <class Interface>
Interface& requireNode(const GenApi::CNodeMapRef& nodeMap, const char* name, caller where = caller::here()) {
  auto* node = findNode<Interface>(nodeMap, name);
  if (node == nullptr) {
    LOG_FROM(where, 1, "fail: INodeMap::GetNode (name:%s)", name);
    throw internal_error();
  }
  return *node;
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
