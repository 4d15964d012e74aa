#include "src/camera/params/bool_param.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

bool_enum_param::bool_enum_param(param_provider_like* provider, const char* name, const char* trueText,
                                 const char* falseText)
    : provider_(provider), name_(name), trueText_(trueText), falseText_(falseText) {}

void bool_enum_param::setValue(bool value) {
  auto& node = requireNode<GenApi::IValue>(requireNodeMap(provider_), name_.c_str());
  const std::string& text = value ? trueText_ : falseText_;
  try {
    node.FromString(text.c_str(), true);
  } catch (const GenICam::GenericException& error) {
    LOG(1, "fail: IValue::FromString (name:%s, value:%s, exception:<%s>)", name_.c_str(), text.c_str(),
        error.what());
    throw internal_error();
  }
  LOG(4, "done: SetEnumValue (name:%s, value:%s)", name_.c_str(), text.c_str());
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
