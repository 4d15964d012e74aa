#include "platform/aravis/arv_feature.h"

#include <cstdint>
#include <limits>
#include <type_traits>

#include "platform/gev/exceptions.h"

namespace gige {
namespace {

using gev::value;
using gev::value_kind;

const char* unit_of(ArvGcFeatureNode* node, value_kind kind) {
  const char* unit = nullptr;
  if (kind == value_kind::integer) {
    unit = arv_gc_integer_get_unit(ARV_GC_INTEGER(node));
  } else if (kind == value_kind::floating) {
    unit = arv_gc_float_get_unit(ARV_GC_FLOAT(node));
  }
  return unit == nullptr ? "" : unit;
}

// A limit that the description leaves out restricts nothing.
bool leaves_out(const glib_error& error) {
  return error.is(ARV_GC_ERROR, ARV_GC_ERROR_PROPERTY_NOT_DEFINED);
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

// Asks one question of Aravis and raises what it ends with.
template <class Ask>
auto answered(const std::string& feature, Ask ask) {
  glib_error error;
  if constexpr (std::is_void_v<decltype(ask(error.out()))>) {
    ask(error.out());
    error.raise_if_set(feature);
  } else {
    auto answer = ask(error.out());
    error.raise_if_set(feature);
    return answer;
  }
}

}  // namespace

// An enumeration presents itself as an integer and a string, too.
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

arv_feature::arv_feature(ArvGcFeatureNode* node, value_kind kind, feature_host& host)
    : node_(node),
      host_(host),
      name_(arv_gc_feature_node_get_name(node)),
      kind_(kind),
      unit_(unit_of(node, kind)),
      selector_(host.graph.is_selector(node)),
      entriesVary_(kind == value_kind::enumeration && host.graph.has_optional_entries(node)) {
  if (kind == value_kind::enumeration) {
    read_entries();
  }
}

// ---- What is remembered

const dependencies& arv_feature::sources() {
  if (!sources_) {
    sources_ = host_.graph.of(node_);
  }
  if (checkedAt_ != host_.camera.now()) {
    checkedAt_ = host_.camera.now();
    valueChange_ = host_.graph.last_change(sources_->ofValue);
    accessChange_ = host_.graph.last_change(sources_->ofAccess);
  }
  return *sources_;
}

template <class Ask>
auto arv_feature::ask_wire(moment oldest, Ask ask) {
  host_.camera.trust_since(oldest);
  mark_moving_registers();
  return ask();
}

template <class Known, class Ask>
const Known& arv_feature::recall(remembered<Known>& memory, const change& last, Ask ask) {
  const bool moves = !sources().moving.empty();
  if (moves || !memory.known || memory.when < last.any) {
    memory.known = ask_wire(last.byCamera, ask);
    memory.when = host_.camera.now();
  }
  return *memory.known;
}

// Which register it is may depend on a selector, so that the addresses are found out after each change.
void arv_feature::mark_moving_registers() {
  if (markedAt_ == host_.camera.now()) {
    return;
  }
  for (const moving_register& each : sources().moving) {
    const auto address =
        answered(name_, [&](GError** error) { return arv_gc_register_get_address(each.node, error); });
    host_.camera.expires(address, each.lifetime);
  }
  markedAt_ = host_.camera.now();
}

// ---- Access

GenApi::EAccessMode arv_feature::access() {
  const auto mode = recall(access_, accessChange_, [this] { return read_access(); });
  if (!host_.monitoring || mode == GenApi::NI || mode == GenApi::NA) {
    return mode;
  }
  return mode == GenApi::WO ? GenApi::NA : GenApi::RO;
}

GenApi::EAccessMode arv_feature::read_access() {
  const auto asked = [this](auto* question) {
    return answered(name_, [&](GError** error) { return question(node_, error); }) != 0;
  };
  if (!asked(arv_gc_feature_node_is_implemented)) {
    return GenApi::NI;
  }
  if (!asked(arv_gc_feature_node_is_available)) {
    return GenApi::NA;
  }
  const auto mode = mode_of(arv_gc_feature_node_get_actual_access_mode(node_));
  if (mode == GenApi::RO || !is_locked()) {
    return mode;
  }
  return mode == GenApi::WO ? GenApi::NA : GenApi::RO;
}

bool arv_feature::is_locked() {
  return answered(name_, [this](GError** error) { return arv_gc_feature_node_is_locked(node_, error); }) != 0;
}

const char* arv_feature::obstacle() {
  if (host_.monitoring) {
    return "the camera is open for monitoring only";
  }
  const bool locked = ask_wire(accessChange_.byCamera, [this] { return is_locked(); });
  return locked ? "locked by the camera, as while frames are transferred" : nullptr;
}

// ---- Value

value arv_feature::get(bool ignoreCache) {
  if (ignoreCache) {
    value_.known.reset();
    return ask_wire(wire::nothing, [this] { return read_value(); });
  }
  return recall(value_, valueChange_, [this] { return read_value(); });
}

value arv_feature::read_value() {
  return answered(name_, [this](GError** error) -> value {
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
    return std::string(text == nullptr ? "" : text);
  });
}

// Writing what a selector has is nothing, as long as only we can change it.
bool arv_feature::already_is(const value& to) const {
  return selector_ && value_.known && value_.when >= valueChange_.any && *value_.known == to;
}

// A number may have become another one that the camera can do; a choice was taken as it is.
bool arv_feature::keeps_what_is_written() {
  const bool choice = kind_ == value_kind::enumeration || kind_ == value_kind::boolean;
  return (choice || selector_) && sources().moving.empty() && !sources().readBack;
}

void arv_feature::set(const value& to) {
  const bool ours = sources().moving.empty();
  if (ours && already_is(to)) {
    return;
  }
  // Also when it fails: what the camera made of it is not known.
  struct noted {
    feature_host& host;
    ArvGcFeatureNode* node;
    ~noted() { host.graph.changed(node, host.camera.advance()); }
  };
  {
    const noted afterwards{host_, node_};
    ask_wire(accessChange_.byCamera, [&] { write_value(to); });
  }
  if (keeps_what_is_written()) {
    host_.camera.keep_written();
    if (selector_) {
      value_ = {to, host_.camera.now()};
    }
  }
}

void arv_feature::write_value(const value& to) {
  answered(name_, [&](GError** error) {
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

namespace {

template <class Number, class Node>
value limit_of(const std::string& feature, Number (*question)(Node*, GError**), Node* node, value otherwise) {
  glib_error error;
  const Number limit = question(node, error.out());
  if (leaves_out(error)) {
    return otherwise;
  }
  error.raise_if_set(feature);
  if constexpr (std::is_floating_point_v<Number>) {
    return double{limit};
  } else {
    return std::int64_t{limit};
  }
}

}  // namespace

value arv_feature::min() {
  return recall(min_, valueChange_, [this]() -> value {
    return kind_ == value_kind::floating
               ? limit_of(name_, arv_gc_float_get_min, as<ArvGcFloat>(),
                          std::numeric_limits<double>::lowest())
               : limit_of(name_, arv_gc_integer_get_min, as<ArvGcInteger>(), std::int64_t{INT64_MIN});
  });
}

value arv_feature::max() {
  return recall(max_, valueChange_, [this]() -> value {
    return kind_ == value_kind::floating
               ? limit_of(name_, arv_gc_float_get_max, as<ArvGcFloat>(), std::numeric_limits<double>::max())
               : limit_of(name_, arv_gc_integer_get_max, as<ArvGcInteger>(), std::int64_t{INT64_MAX});
  });
}

value arv_feature::inc() {
  return recall(inc_, valueChange_, [this]() -> value {
    return kind_ == value_kind::floating
               ? limit_of(name_, arv_gc_float_get_inc, as<ArvGcFloat>(), 0.0)
               : limit_of(name_, arv_gc_integer_get_inc, as<ArvGcInteger>(), std::int64_t{1});
  });
}

// ---- Entries

void arv_feature::read_entries() {
  for (ArvGcFeatureNode* const entry : entry_nodes(node_)) {
    const auto number = answered(
        name_, [&](GError** error) { return arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(entry), error); });
    entries_.push_back({arv_gc_feature_node_get_name(entry), number, GenApi::RO});
  }
}

void arv_feature::refresh_offered_entries() {
  std::size_t at = 0;
  for (ArvGcFeatureNode* const entry : entry_nodes(node_)) {
    const auto asked = [&](auto* question) {
      return answered(name_, [&](GError** error) { return question(entry, error); }) != 0;
    };
    entries_[at++].access = !asked(arv_gc_feature_node_is_implemented) ? GenApi::NI
                            : !asked(arv_gc_feature_node_is_available) ? GenApi::NA
                                                                       : GenApi::RO;
  }
}

const std::vector<gev::entry>& arv_feature::entries() {
  if (entriesVary_ && host_.asking) {
    recall(offered_, accessChange_, [this] {
      refresh_offered_entries();
      return true;
    });
  }
  return entries_;
}

}  // namespace gige
