// What a parser returns: the value that was read, or the reason why there is none.
#ifndef PLATFORM_GIGE_PROTOCOL_PARSED_H
#define PLATFORM_GIGE_PROTOCOL_PARSED_H

#include <optional>
#include <utility>

namespace gige_protocol {

// Why bytes were refused: a literal that names what is wrong, to stand in a log line or a message.
struct refusal {
  const char* reason;
};

// Either a value or a refusal. No parser of this folder raises.
template <class value_type>
class parsed {
 public:
  // Implicit, so that a parser returns the one or the other.
  constexpr parsed(value_type value) : value_(std::move(value)) {}
  constexpr parsed(refusal why) : reason_(why.reason) {}

  // True for a value, which only then may be looked at.
  constexpr explicit operator bool() const { return value_.has_value(); }
  constexpr const value_type& operator*() const { return *value_; }
  constexpr const value_type* operator->() const { return &*value_; }

  // The refusal's reason; nullptr for a value.
  constexpr const char* reason() const { return reason_; }

 private:
  std::optional<value_type> value_;
  const char* reason_ = nullptr;
};

}  // namespace gige_protocol

#endif
