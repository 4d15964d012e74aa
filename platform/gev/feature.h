// A feature of a camera, and reading and writing it with all checks.
#ifndef PLATFORM_GEV_FEATURE_H
#define PLATFORM_GEV_FEATURE_H

#include <string>
#include <string_view>
#include <vector>

#include "platform/gev/value.h"

namespace gev {

// One feature, simulated or behind a network connection. All calls are made under the lock of its camera (see
// `node_owner`).
//
// A value is refused in two places. `write` below checks it against the access mode, limits and entries that
// the feature presents. `set` then refuses what the camera itself cannot do, by an exception of the GenICam
// tree.
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
  // For listings: the path of its category ("Root/ImageFormatControl") and what the feature is for. Empty
  // where the camera does not say.
  virtual const std::string& category() const;
  virtual const std::string& description() const;
  virtual GenApi::EAccessMode access() = 0;
  // Why a feature is read only at the moment, to follow "is read only: ". Null when it never can be written,
  // and when it can be.
  virtual const char* obstacle() = 0;
  virtual value get(bool ignoreCache) = 0;
  virtual void set(const value& to) = 0;
  // Limits of integers and floats, and the increment of integers. Not called for other kinds.
  virtual value min() = 0;
  virtual value max() = 0;
  virtual value inc() = 0;
  // Names and numbers stay the same for the life of the feature; empty unless it is an enumeration.
  virtual const std::vector<entry>& entries() = 0;
};

// Reads the value. With `verify`, the value that was read is checked as well. Raises AccessException for a
// feature that cannot be read, and what `get` raises.
value read(feature& from, bool verify, bool ignoreCache);
// Writes the value. With `verify`, access mode, limits and entries are checked first. A refused write,
// whether by these checks or by the camera, is logged in one line, and its exception goes on to the caller.
void write(feature& to, const value& written, bool verify);
// The same for a value as text, as `parse` reads it.
void write_text(feature& to, std::string_view text, bool verify);

// Logs a refused write. `right` says which values the feature takes ("16 to 64 by 16 px").
void log_refusal(const std::string& feature, const std::string& written, const std::string& right,
                 const GenICam::GenericException& refusal);

}  // namespace gev

#endif
