// The property table: how configuration goes from the host to the bundle.
//
// A table maps a row and a column, each 0 to 255, to cells of four types. Cells of different types at one
// key are independent: a typed read sees only cells of its own type.
//
// Tables are shared by an intrusive reference count. Whoever creates one holds the first reference; whoever
// keeps a pointer beyond the call in which it came takes one with `retain` and gives it back with `release`.
// Only the count may be used from several threads at once; a table must not be written while another thread
// reads or writes its cells.
//
// Host and bundle call the interfaces by virtual slot: their order is binding and must never change.
#ifndef CORE_TABLE_H
#define CORE_TABLE_H

#include <concepts>
#include <cstdint>
#include <string>
#include <utility>

#include "core/errors.h"

namespace Zavik::Support {

class rw_table_like;

/// A table to read.
class table_like {
 public:
  virtual ~table_like() = default;

  /// Adds one reference. At most 65,535 at a time.
  virtual void retain() = 0;
  /// Drops one reference; the last one destroys the table.
  virtual void release() = 0;

  /// Each copies the cell of its type to `out` and returns true; without such a cell it returns false and
  /// leaves `out` as it was.
  virtual bool getBool(std::uint8_t row, std::uint8_t col, bool& out) const = 0;
  virtual bool getFloat(std::uint8_t row, std::uint8_t col, float& out) const = 0;
  virtual bool getInt64(std::uint8_t row, std::uint8_t col, std::int64_t& out) const = 0;
  virtual bool getString(std::uint8_t row, std::uint8_t col, std::string& out) const = 0;

  /// An independent copy with one reference, the caller's; null (after a level-1 log line) when memory is
  /// exhausted.
  virtual rw_table_like* clone() const = 0;
};

/// A table to read and write.
class rw_table_like : public table_like {
 public:
  /// Each creates the cell of its type or overwrites it; cells of other types stay. std::bad_alloc passes.
  virtual void setBool(std::uint8_t row, std::uint8_t col, bool value) = 0;
  virtual void setFloat(std::uint8_t row, std::uint8_t col, float value) = 0;
  virtual void setInt64(std::uint8_t row, std::uint8_t col, std::int64_t value) = 0;
  virtual void setString(std::uint8_t row, std::uint8_t col, std::string value) = 0;

  /// Sets every cell of `source` in this table; cells that only this table has stay. `source` must come from
  /// `Table__Create` or `clone` of the same version of this library, no matter which copy of it: the host's
  /// own is as good as the bundle's. A null pointer, a table of another version and one of another
  /// implementation raise unsupported_error, and nothing is changed.
  virtual void update(const table_like* source) = 0;
};

/// A new, empty table with one reference, the caller's. Never null; std::bad_alloc passes.
rw_table_like* Table__Create();

/// Holds a reference on a table for the length of a scope, and reads it with rows of the enumeration P.
/// I is table_like or rw_table_like.
template <class P, class I>
class table {
 public:
  /// Takes a reference of its own. Null raises unsupported_error.
  explicit table(I* held) : held_(held) {
    if (held_ == nullptr) {
      throw unsupported_error();
    }
    held_->retain();
  }
  virtual ~table() { held_->release(); }
  table(const table&) = delete;
  table& operator=(const table&) = delete;

  /// The table itself; the reference stays with this object.
  I* get() const { return held_; }

  bool getBool(P row, std::uint8_t col, bool& out) const { return held_->getBool(id(row), col, out); }
  bool getFloat(P row, std::uint8_t col, float& out) const { return held_->getFloat(id(row), col, out); }
  bool getInt64(P row, std::uint8_t col, std::int64_t& out) const {
    return held_->getInt64(id(row), col, out);
  }
  bool getString(P row, std::uint8_t col, std::string& out) const {
    return held_->getString(id(row), col, out);
  }
  /// An int64 cell as the enumeration (or integer) E: its low bits, as many as E has.
  template <class E>
  bool getIntEnum(P row, std::uint8_t col, E& out) const {
    std::int64_t value = 0;
    if (!getInt64(row, col, value)) {
      return false;
    }
    out = static_cast<E>(value);
    return true;
  }
  rw_table_like* clone() const { return held_->clone(); }

  void setBool(P row, std::uint8_t col, bool value) requires std::derived_from<I, rw_table_like> {
    held_->setBool(id(row), col, value);
  }
  void setFloat(P row, std::uint8_t col, float value) requires std::derived_from<I, rw_table_like> {
    held_->setFloat(id(row), col, value);
  }
  void setInt64(P row, std::uint8_t col, std::int64_t value) requires std::derived_from<I, rw_table_like> {
    held_->setInt64(id(row), col, value);
  }
  void setString(P row, std::uint8_t col, std::string value) requires std::derived_from<I, rw_table_like> {
    held_->setString(id(row), col, std::move(value));
  }
  void update(const table_like* source) requires std::derived_from<I, rw_table_like> {
    held_->update(source);
  }

 private:
  static std::uint8_t id(P row) { return static_cast<std::uint8_t>(row); }

  I* held_;
};

/// Holds a reference on a table that is to be written.
template <class P>
class rw_table : public table<P, rw_table_like> {
 public:
  using table<P, rw_table_like>::table;
};

}  // namespace Zavik::Support

#endif
