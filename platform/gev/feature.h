// A feature of a camera as the nodes see it, and the checks that every access to one goes through.
#ifndef PLATFORM_GEV_FEATURE_H
#define PLATFORM_GEV_FEATURE_H

#include <string>
#include <string_view>
#include <vector>

#include "platform/gev/value.h"

namespace gev {

// Where the value of one feature lives: in a simulated camera, or behind a network connection. All calls
// come under the owner's lock (see `gate`). An implementation refuses what the camera itself cannot do by
// raising an exception of the GenICam tree; what is only presented (access, limits, entries) is
// checked by `read` and `write` below.
class feature {
 public:
  feature() = default;
  feature(const feature&) = delete;
  feature& operator=(const feature&) = delete;
  virtual ~feature() = default;

  virtual const std::string& name() const = 0;
  virtual value_kind kind() const = 0;
  // The unit of its numbers, for messages; empty when there is none.
  virtual const std::string& unit() const = 0;
  // For listings: the categories it is in, from the outermost ("Root/ImageFormatControl"), and what it is
  // for. Empty where nobody says.
  virtual const std::string& category() const;
  virtual const std::string& description() const;
  virtual GenApi::EAccessMode access() = 0;
  // Why a feature that is RO just now cannot be written, to follow "is read only: "; null when it never can.
  virtual const char* obstacle() = 0;
  virtual value get(bool ignoreCache) = 0;
  virtual void set(const value& to) = 0;
  // Limits and increment; only asked of integers and, without the increment, of floats.
  virtual value min() = 0;
  virtual value max() = 0;
  virtual value inc() = 0;
  // Names and numbers stay the same for the life of the feature; empty unless it is an enumeration.
  virtual const std::vector<entry>& entries() = 0;
};

// Reads the value; raises AccessException when it cannot be read. `verify` checks what was read as well.
value read(feature& from, bool verify, bool ignoreCache);
// Checks access, limits and entries when `verify`, and writes. Logs one line for a write that is refused, by
// these checks or by the camera, before the exception leaves.
void write(feature& to, const value& written, bool verify);
// The same for the text of a value, see `parse`.
void write_text(feature& to, std::string_view text, bool verify);

// The line of a write that was refused elsewhere. `right` says which values would have been taken.
void log_refusal(const std::string& feature, const std::string& written, const std::string& right,
                 const GenICam::GenericException& refusal);

// The same checks for an implementation of `feature` to refuse by the camera's own limits and access. A
// refusal names the feature, the value and what would be right.
struct limits {
  value min{};
  value max{};
  value inc{};  // of integers only
};
void check_value(const feature& of, value_kind kind, const value& what, const limits& within,
                 const std::vector<entry>& entries);
void check_writable(feature& of, const value& written, GenApi::EAccessMode access);

}  // namespace gev

#endif
