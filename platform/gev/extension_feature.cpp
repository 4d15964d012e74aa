#include "platform/gev/extension_feature.h"

#include <algorithm>
#include <utility>

namespace gev {
namespace {

camera_extension_type type_of(value_kind kind) {
  switch (kind) {
    case value_kind::integer:
      return camera_extension_integer;
    case value_kind::floating:
      return camera_extension_float;
    case value_kind::boolean:
      return camera_extension_boolean;
    case value_kind::enumeration:
      return camera_extension_enumeration;
    case value_kind::string:
      break;
  }
  return camera_extension_string;
}

// The text that `read` gives; none when the camera refuses it.
template <class Read>
std::optional<std::string> text_of(Read read) {
  try {
    return plain(read());
  } catch (const GenICam::GenericException&) {
    return std::nullopt;
  }
}

const char* text_or_null(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

bool is_offered(const entry& each) {
  return each.access != GenApi::NI && each.access != GenApi::NA;
}

}  // namespace

extension_feature::extension_feature(feature& of)
    : name_(plain(of.name())),
      unit_(plain(of.unit())),
      category_(plain(of.category())),
      description_(plain(of.description())),
      type_(type_of(of.kind())) {
  const GenApi::EAccessMode access = of.access();
  readable_ = access == GenApi::RO || access == GenApi::RW;
  writable_ = access == GenApi::WO || access == GenApi::RW;
  if (readable_) {
    value_ = text_of([&] { return format(of.kind(), of.entries(), read(of, false, false)); });
  }
  if (type_ == camera_extension_integer || type_ == camera_extension_float) {
    min_ = text_of([&] { return to_text(of.min()); });
    max_ = text_of([&] { return to_text(of.max()); });
  }
  if (type_ == camera_extension_integer) {
    increment_ = text_of([&] { return to_text(of.inc()); });
  }
  for (const entry& each : of.entries()) {
    if (is_offered(each)) {
      entries_.push_back(plain(each.name));
    }
  }
  std::transform(entries_.begin(), entries_.end(), std::back_inserter(entryNames_),
                 [](const std::string& each) { return each.c_str(); });
}

camera_extension_feature extension_feature::record() const {
  return {.name = name_.c_str(),
          .value = text_or_null(value_),
          .min = text_or_null(min_),
          .max = text_or_null(max_),
          .increment = text_or_null(increment_),
          .unit = unit_.c_str(),
          .category = category_.c_str(),
          .description = description_.c_str(),
          .entries = entryNames_.data(),
          .entry_count = entryNames_.size(),
          .type = type_,
          .readable = readable_ ? 1 : 0,
          .writable = writable_ ? 1 : 0};
}

int visit_features(const std::vector<std::unique_ptr<extension_feature>>& features,
                   int (*visit)(void* context, const camera_extension_feature* feature), void* context) {
  for (const auto& each : features) {
    const camera_extension_feature record = each->record();
    if (visit(context, &record) != 0) {
      break;
    }
  }
  return 0;
}

std::string plain(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char letter) { return letter < 0x20 || letter == 0x7F; }, ' ');
  return text;
}

}  // namespace gev
