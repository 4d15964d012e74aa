#include "platform/gige/description/node_feature.h"

#include <cctype>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

namespace gige {
namespace {

using gev::value;
using gev::value_kind;

std::string text_of(const char* text) {
  return text == nullptr ? "" : text;
}

std::string unit_of(ArvGcFeatureNode* node, value_kind kind) {
  std::string unit = kind == value_kind::integer    ? text_of(arv_gc_integer_get_unit(ARV_GC_INTEGER(node)))
                     : kind == value_kind::floating ? text_of(arv_gc_float_get_unit(ARV_GC_FLOAT(node)))
                                                    : "";
  std::erase_if(unit, [](unsigned char c) { return std::iscntrl(c) != 0; });  // for messages
  return unit;
}

std::string purpose_of(ArvGcFeatureNode* node) {
  const std::string description = text_of(arv_gc_feature_node_get_description(node));
  return description.empty() ? text_of(arv_gc_feature_node_get_tooltip(node)) : description;
}

GenApi::EAccessMode mode_of(ArvGcAccessMode mode) {
  switch (mode) {
    case ARV_GC_ACCESS_MODE_RO:
      return GenApi::RO;
    case ARV_GC_ACCESS_MODE_WO:
      return GenApi::WO;
    default:
      return GenApi::RW;
  }
}

GenApi::EAccessMode without_writing(GenApi::EAccessMode mode) {
  return mode == GenApi::RW ? GenApi::RO : mode == GenApi::WO ? GenApi::NA : mode;
}

}  // namespace

// Enumerations come first: ArvGc says of them that they are integers and strings, too.
std::optional<value_kind> kind_of(ArvGcFeatureNode* node) {
  if (ARV_IS_GC_ENUMERATION(node)) {
    return value_kind::enumeration;
  }
  if (ARV_IS_GC_BOOLEAN(node)) {
    return value_kind::boolean;
  }
  if (ARV_IS_GC_COMMAND(node) || ARV_IS_GC_CATEGORY(node) || ARV_IS_GC_PORT(node)) {
    return std::nullopt;
  }
  if (ARV_IS_GC_FLOAT(node)) {
    return value_kind::floating;
  }
  if (ARV_IS_GC_INTEGER(node)) {
    return value_kind::integer;
  }
  return ARV_IS_GC_STRING(node) ? std::optional(value_kind::string) : std::nullopt;
}

node_feature::node_feature(ArvGcFeatureNode* node, value_kind kind, std::string category,
                           feature_context& context)
    : node_(node),
      context_(context),
      name_(arv_gc_feature_node_get_name(node)),
      kind_(kind),
      unit_(unit_of(node, kind)),
      category_(std::move(category)),
      description_(purpose_of(node)),
      isSelector_(context.graph.is_selector(node)),
      hasOptionalEntries_(kind == value_kind::enumeration && context.graph.has_optional_entries(node)) {
  if (kind == value_kind::enumeration) {
    read_entries();
  }
}

// ---- Calls of ArvGc

const dependencies& node_feature::sources() {
  if (!sources_) {
    sources_ = context_.graph.of(node_);
  }
  return *sources_;
}

// Raises what the port raised during the call, or what the call's error stands for.
template <class Call>
auto node_feature::call(Call arvgc) {
  glib_error error;
  if constexpr (std::is_void_v<decltype(arvgc(error.out()))>) {
    arvgc(error.out());
    context_.device.rethrow();
    error.raise_if_set(name_);
  } else {
    auto result = arvgc(error.out());
    context_.device.rethrow();
    error.raise_if_set(name_);
    return result;
  }
}

bool node_feature::call_predicate(ArvGcFeatureNode* node,
                                  gboolean (*predicate)(ArvGcFeatureNode*, GError**)) {
  return call([&](GError** error) { return predicate(node, error); }) != 0;
}

void node_feature::begin_access() {
  begin_access(context_.graph.valid_since(sources()));
}

// The addresses of polled registers may have to be read, too.
void node_feature::begin_access(revision oldest) {
  context_.registers.begin_access(oldest, {});
  if (!sources().polled.empty()) {
    context_.registers.begin_access(oldest, polled_registers());
  }
}

std::vector<polled_register> node_feature::polled_registers() {
  std::vector<polled_register> polled;
  for (const auto& each : sources().polled) {
    const auto address = call([&](GError** error) { return arv_gc_register_get_address(each.node, error); });
    polled.push_back({address, each.lifetime});
  }
  return polled;
}

// Without a write, only polled registers change. So the result stays the same, and need not be computed again
// from registers that are known anyway.
template <class Result, class Read>
const Result& node_feature::cached_or_read(cached<Result>& kept, Read read) {
  const bool polls = !sources().polled.empty();
  if (polls || !kept.result || kept.when != context_.registers.now()) {
    begin_access();
    kept.result = read();
    kept.when = context_.registers.now();
  }
  return *kept.result;
}

// ---- Access

GenApi::EAccessMode node_feature::access() {
  const GenApi::EAccessMode mode = cached_or_read(access_, [this] { return read_access(); });
  return context_.monitoring ? without_writing(mode) : mode;
}

GenApi::EAccessMode node_feature::read_access() {
  if (!call_predicate(node_, arv_gc_feature_node_is_implemented)) {
    return GenApi::NI;
  }
  if (!call_predicate(node_, arv_gc_feature_node_is_available)) {
    return GenApi::NA;
  }
  const auto mode = mode_of(arv_gc_feature_node_get_actual_access_mode(node_));
  return mode != GenApi::RO && is_locked() ? without_writing(mode) : mode;
}

bool node_feature::is_locked() {
  return call_predicate(node_, arv_gc_feature_node_is_locked);
}

const char* node_feature::obstacle() {
  if (context_.monitoring) {
    return "the camera is open for monitoring only";
  }
  begin_access();
  return is_locked() ? "locked by the camera, as while frames are transferred" : nullptr;
}

// ---- Value

value node_feature::get(bool ignoreCache) {
  if (ignoreCache) {
    value_.result.reset();
    begin_access(register_cache::readAll);
    return read_value();
  }
  return cached_or_read(value_, [this] { return read_value(); });
}

value node_feature::read_value() {
  return call([this](GError** error) -> value {
    switch (kind_) {
      case value_kind::integer:
        return std::int64_t{arv_gc_integer_get_value(as<ArvGcInteger>(), error)};
      case value_kind::floating:
        return arv_gc_float_get_value(as<ArvGcFloat>(), error);
      case value_kind::enumeration:
        return std::int64_t{arv_gc_enumeration_get_int_value(as<ArvGcEnumeration>(), error)};
      case value_kind::boolean:
        return std::int64_t{arv_gc_boolean_get_value(as<ArvGcBoolean>(), error)};
      case value_kind::string:
        break;
    }
    const char* const text = arv_gc_string_get_value(as<ArvGcString>(), error);
    return *error == nullptr ? text_of(text) : std::string();  // with an error, `text` may be anything
  });
}

// Only for a selector that the camera does not change by itself.
bool node_feature::is_selected(const value& to) {
  return isSelector_ && sources().polled.empty() && access() == GenApi::RW && get(false) == to;
}

// A camera takes an entry as it is. It may round a number to one that it can do.
bool node_feature::keeps_what_is_written() {
  const bool choice = kind_ == value_kind::enumeration || kind_ == value_kind::boolean;
  return (choice || isSelector_) && sources().polled.empty() && !sources().readBack;
}

void node_feature::set(const value& to) {
  if (is_selected(to)) {
    return;
  }
  // Counts a failed write, too: the camera may have done a part of it.
  struct write_mark {
    feature_context& context;
    ArvGcFeatureNode* node;
    ~write_mark() { context.graph.mark_written(node, context.registers.advance()); }
  };
  {
    const write_mark atEnd{context_, node_};
    begin_access();
    write_value(to);
  }
  if (keeps_what_is_written()) {
    context_.registers.keep_written();
  }
}

void node_feature::write_value(const value& to) {
  call([&](GError** error) {
    switch (kind_) {
      case value_kind::integer:
        arv_gc_integer_set_value(as<ArvGcInteger>(), gev::to_integer(to), error);
        break;
      case value_kind::floating:
        arv_gc_float_set_value(as<ArvGcFloat>(), gev::to_number(to), error);
        break;
      case value_kind::enumeration:
        arv_gc_enumeration_set_int_value(as<ArvGcEnumeration>(), gev::to_integer(to), error);
        break;
      case value_kind::boolean:
        arv_gc_boolean_set_value(as<ArvGcBoolean>(), gev::to_integer(to) != 0, error);
        break;
      case value_kind::string:
        arv_gc_string_set_value(as<ArvGcString>(), gev::to_text(to).c_str(), error);
        break;
    }
  });
}

// ---- Limits

// Returns `otherwise` for a limit that the description leaves out.
template <class Number, class Node>
value node_feature::read_limit(Number (*getter)(Node*, GError**), const value& otherwise) {
  begin_access();
  return call([&](GError** error) -> value {
    const Number found = getter(as<Node>(), error);
    if (g_error_matches(*error, ARV_GC_ERROR, ARV_GC_ERROR_PROPERTY_NOT_DEFINED) != 0) {
      g_clear_error(error);
      return otherwise;
    }
    if constexpr (std::is_floating_point_v<Number>) {
      return double{found};
    } else {
      return std::int64_t{found};
    }
  });
}

value node_feature::min() {
  return kind_ == value_kind::floating
             ? read_limit(arv_gc_float_get_min, std::numeric_limits<double>::lowest())
             : read_limit(arv_gc_integer_get_min, std::int64_t{INT64_MIN});
}

value node_feature::max() {
  return kind_ == value_kind::floating ? read_limit(arv_gc_float_get_max, std::numeric_limits<double>::max())
                                       : read_limit(arv_gc_integer_get_max, std::int64_t{INT64_MAX});
}

value node_feature::inc() {
  return kind_ == value_kind::floating ? read_limit(arv_gc_float_get_inc, 0.0)
                                       : read_limit(arv_gc_integer_get_inc, std::int64_t{1});
}

// ---- Entries

void node_feature::read_entries() {
  for (ArvGcFeatureNode* const entry : entry_nodes(node_)) {
    const auto number =
        call([&](GError** error) { return arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(entry), error); });
    entries_.push_back({text_of(arv_gc_feature_node_get_name(entry)), number, GenApi::RO});
  }
}

void node_feature::refresh_offered_entries() {
  std::size_t at = 0;
  for (ArvGcFeatureNode* const entry : entry_nodes(node_)) {
    entries_[at++].access = !call_predicate(entry, arv_gc_feature_node_is_implemented) ? GenApi::NI
                            : !call_predicate(entry, arv_gc_feature_node_is_available) ? GenApi::NA
                                                                                       : GenApi::RO;
  }
}

const std::vector<gev::entry>& node_feature::entries() {
  if (hasOptionalEntries_ && context_.mayRead) {
    begin_access();
    refresh_offered_entries();
  }
  return entries_;
}

}  // namespace gige
