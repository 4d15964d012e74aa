// The definitions that GenApi.h leaves to the camera library: destructors of the node interfaces, the node
// map reference and the marker symbol.
#include "platform/gev/exceptions.h"

extern "C" const int built_with_stand_in_GenApi_headers_rebuild_with_GEV_FRAMEWORK_ROOT = 1;

namespace GenApi_3_0 {

// Out of line, so that the type information of each exists in this library only.
IBase::~IBase() = default;
INode::~INode() = default;
IValue::~IValue() = default;
IInteger::~IInteger() = default;
IFloat::~IFloat() = default;
IBoolean::~IBoolean() = default;
IEnumEntry::~IEnumEntry() = default;
IEnumeration::~IEnumeration() = default;
INodeMap::~INodeMap() = default;

INode* CNodeMapRef::_GetNode(const GenICam::gcstring& name) const {
  if (map_ == nullptr) {
    gev::raise<GenICam::AccessException>("Feature not present (reference not valid)");
  }
  return map_->GetNode(name);
}

}  // namespace GenApi_3_0
