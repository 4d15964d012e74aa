#include "platform/gev/feature_bytes.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace gev {
namespace {

template <class Number>
void store(void* to, Number number) {
  std::memcpy(to, &number, sizeof(number));
}

template <class Number>
Number load(const void* from) {
  Number number{};
  std::memcpy(&number, from, sizeof(number));
  return number;
}

bool is_text(feature& feature, std::size_t size) {
  return feature.kind() == value_kind::string || size >= smallestText;
}
bool is_float(feature& feature) {
  return feature.kind() == value_kind::floating;
}

GEV_STATUS store_text(const std::string& text, std::size_t size, void* to) {
  if (text.size() + 1 > size) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  std::memcpy(to, text.c_str(), text.size() + 1);
  return GEVLIB_OK;
}

GEV_STATUS store_integer(std::int64_t number, std::size_t size, void* to) {
  const bool small = number >= INT32_MIN && number <= INT32_MAX;
  if (size == sizeof(std::int64_t)) {
    store(to, number);
  } else if (size == sizeof(std::int32_t) && small) {
    store(to, static_cast<std::int32_t>(number));
  } else {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  return GEVLIB_OK;
}

GEV_STATUS store_float(double number, std::size_t size, void* to) {
  if (size == sizeof(double)) {
    store(to, number);
  } else if (size == sizeof(float)) {
    store(to, static_cast<float>(number));
  } else {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  return GEVLIB_OK;
}

}  // namespace

GEV_STATUS read_bytes(feature& from, int* type, std::size_t size, void* to) {
  *type = static_cast<int>(from.kind());
  const value now = read(from, false, false);
  return is_text(from, size) ? store_text(format(from.kind(), from.entries(), now), size, to)
         : is_float(from)    ? store_float(to_number(now), size, to)
                             : store_integer(to_integer(now), size, to);
}

std::optional<value> value_of_bytes(feature& feature, std::size_t size, const void* from) {
  if (is_text(feature, size)) {
    const auto* text = static_cast<const char*>(from);
    return std::string(text, strnlen(text, size));
  }
  if (size == sizeof(std::int32_t)) {
    return is_float(feature) ? value(static_cast<double>(load<float>(from)))
                             : value(std::int64_t{load<std::int32_t>(from)});
  }
  if (size == sizeof(std::int64_t)) {
    return is_float(feature) ? value(load<double>(from)) : value(load<std::int64_t>(from));
  }
  return std::nullopt;
}

GEV_STATUS write_bytes(feature& to, std::size_t size, const void* from) {
  const auto wanted = value_of_bytes(to, size, from);
  if (!wanted) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  if (const auto* text = std::get_if<std::string>(&*wanted)) {
    write_text(to, *text, true);
  } else {
    write(to, *wanted, true);
  }
  return GEVLIB_OK;
}

}  // namespace gev
