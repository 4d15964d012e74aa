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
  std::erase_if(unit, [](unsigned char c) { return std::iscntrl(c) != 0; });  // it stands in messages
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

node_feature::node_feature(ArvGcFeatureNode* node, value_kind kind, std::string category, feature_host& host)
    : node_(node),
      host_(host),
      name_(arv_gc_feature_node_get_name(node)),
      kind_(kind),
      unit_(unit_of(node, kind)),
      category_(std::move(category)),
      description_(purpose_of(node)),
      selector_(host.graph.is_selector(node)),
      entriesVary_(kind == value_kind::enumeration && host.graph.has_optional_entries(node)) {
  if (kind == value_kind::enumeration) {
    read_entries();
  }
}

// ---- Questions

const dependencies& node_feature::sources() {
  if (!sources_) {
    sources_ = host_.graph.of(node_);
  }
  return *sources_;
}

// Asks one question of ArvGc and raises what it ends with.
template <class Ask>
auto node_feature::answered(Ask ask) {
  glib_error error;
  if constexpr (std::is_void_v<decltype(ask(error.out()))>) {
    ask(error.out());
    host_.device.rethrow();
    error.raise_if_set(name_);
  } else {
    auto given = ask(error.out());
    host_.device.rethrow();
    error.raise_if_set(name_);
    return given;
  }
}

void node_feature::begin_question(moment oldest) {
  host_.registers.ask(oldest, {});
  if (!sources().moving.empty()) {
    host_.registers.ask(oldest, moving_registers());
  }
}

// Which register it is may depend on a selector.
std::vector<moving_register> node_feature::moving_registers() {
  std::vector<moving_register> moving;
  for (const auto& each : sources().moving) {
    const auto address =
        answered([&](GError** error) { return arv_gc_register_get_address(each.node, error); });
    moving.push_back({address, each.lifetime});
  }
  return moving;
}

// What the camera changes itself is asked for each time. All else is what it was, as long as nothing was
// written: that saves computing it from registers that are known anyway.
template <class Known, class Ask>
const Known& node_feature::recall(answer<Known>& memory, Ask ask) {
  const bool moves = !sources().moving.empty();
  if (moves || !memory.known || memory.when != host_.registers.now()) {
    begin_question(host_.graph.undisturbed_since(sources()));
    memory.known = ask();
    memory.when = host_.registers.now();
  }
  return *memory.known;
}

// ---- Access

GenApi::EAccessMode node_feature::access() {
  const GenApi::EAccessMode mode = recall(access_, [this] { return read_access(); });
  return host_.monitoring ? without_writing(mode) : mode;
}

GenApi::EAccessMode node_feature::read_access() {
  const auto asked = [this](auto* question) {
    return answered([&](GError** error) { return question(node_, error); }) != 0;
  };
  if (!asked(arv_gc_feature_node_is_implemented)) {
    return GenApi::NI;
  }
  if (!asked(arv_gc_feature_node_is_available)) {
    return GenApi::NA;
  }
  const auto mode = mode_of(arv_gc_feature_node_get_actual_access_mode(node_));
  return mode != GenApi::RO && is_locked() ? without_writing(mode) : mode;
}

bool node_feature::is_locked() {
  return answered([this](GError** error) { return arv_gc_feature_node_is_locked(node_, error); }) != 0;
}

const char* node_feature::obstacle() {
  if (host_.monitoring) {
    return "the camera is open for monitoring only";
  }
  begin_question(host_.graph.undisturbed_since(sources()));
  return is_locked() ? "locked by the camera, as while frames are transferred" : nullptr;
}

// ---- Value

value node_feature::get(bool ignoreCache) {
  if (ignoreCache) {
    value_.known.reset();
    begin_question(register_cache::nothing);
    return read_value();
  }
  return recall(value_, [this] { return read_value(); });
}

value node_feature::read_value() {
  return answered([this](GError** error) -> value {
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
    return *error == nullptr ? text_of(text) : std::string();  // it is not always one when there is an error
  });
}

// Selecting what is selected is nothing, as long as only we can change it.
bool node_feature::already_is(const value& to) {
  return selector_ && sources().moving.empty() && access() == GenApi::RW && get(false) == to;
}

// A number may have become another one that the camera can do; a choice was taken as it is.
bool node_feature::keeps_what_is_written() {
  const bool choice = kind_ == value_kind::enumeration || kind_ == value_kind::boolean;
  return (choice || selector_) && sources().moving.empty() && !sources().readBack;
}

void node_feature::set(const value& to) {
  if (already_is(to)) {
    return;
  }
  // Also when it fails: what the camera made of it is not known.
  struct noted {
    feature_host& host;
    ArvGcFeatureNode* node;
    ~noted() { host.graph.written(node, host.registers.advance()); }
  };
  {
    const noted afterwards{host_, node_};
    begin_question(host_.graph.undisturbed_since(sources()));
    write_value(to);
  }
  if (keeps_what_is_written()) {
    host_.registers.keep_written();
  }
}

void node_feature::write_value(const value& to) {
  answered([&](GError** error) {
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

// A limit that the description leaves out restricts nothing.
template <class Number, class Node>
value node_feature::limit(Number (*question)(Node*, GError**), const value& otherwise) {
  begin_question(host_.graph.undisturbed_since(sources()));
  return answered([&](GError** error) -> value {
    const Number found = question(as<Node>(), error);
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
  return kind_ == value_kind::floating ? limit(arv_gc_float_get_min, std::numeric_limits<double>::lowest())
                                       : limit(arv_gc_integer_get_min, std::int64_t{INT64_MIN});
}

value node_feature::max() {
  return kind_ == value_kind::floating ? limit(arv_gc_float_get_max, std::numeric_limits<double>::max())
                                       : limit(arv_gc_integer_get_max, std::int64_t{INT64_MAX});
}

value node_feature::inc() {
  return kind_ == value_kind::floating ? limit(arv_gc_float_get_inc, 0.0)
                                       : limit(arv_gc_integer_get_inc, std::int64_t{1});
}

// ---- Entries

void node_feature::read_entries() {
  for (ArvGcFeatureNode* const entry : entry_nodes(node_)) {
    const auto number = answered(
        [&](GError** error) { return arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(entry), error); });
    entries_.push_back({text_of(arv_gc_feature_node_get_name(entry)), number, GenApi::RO});
  }
}

void node_feature::refresh_offered_entries() {
  std::size_t at = 0;
  for (ArvGcFeatureNode* const entry : entry_nodes(node_)) {
    const auto asked = [&](auto* question) {
      return answered([&](GError** error) { return question(entry, error); }) != 0;
    };
    entries_[at++].access = !asked(arv_gc_feature_node_is_implemented) ? GenApi::NI
                            : !asked(arv_gc_feature_node_is_available) ? GenApi::NA
                                                                       : GenApi::RO;
  }
}

const std::vector<gev::entry>& node_feature::entries() {
  if (entriesVary_ && host_.asking) {
    begin_question(host_.graph.undisturbed_since(sources()));
    refresh_offered_entries();
  }
  return entries_;
}

}  // namespace gige
