#include "core/table.h"

#include <atomic>
#include <exception>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "core/log.h"

namespace Zavik::Support {

// Host and bundle each link a copy of this file, and a table of the one may be merged into a table of the
// other. So the class below has the same name in all copies that can read each other's cells: the name
// carries the version and the containers. In an unnamed namespace it would be another class in each copy.
namespace core_table {

struct cell_ref {
  std::uint8_t row;
  std::uint8_t col;

  bool operator<(const cell_ref& other) const { return std::tie(row, col) < std::tie(other.row, other.col); }
};

template <class T>
using cell_map = std::map<cell_ref, T>;

template <class T>
bool read(const cell_map<T>& cells, cell_ref key, T& out) {
  const auto cell = cells.find(key);
  if (cell == cells.end()) {
    return false;
  }
  out = cell->second;
  return true;
}

template <class T>
void merge(cell_map<T>& cells, const cell_map<T>& source) {
  for (const auto& [key, value] : source) {
    cells.insert_or_assign(key, value);
  }
}

template <int version, class Strings>
class map_table final : public rw_table_like {
 public:
  void retain() override { refCount_.fetch_add(1, std::memory_order_relaxed); }
  void release() override {
    if (refCount_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }

  bool getBool(std::uint8_t row, std::uint8_t col, bool& out) const override {
    return read(bools_, {row, col}, out);
  }
  bool getFloat(std::uint8_t row, std::uint8_t col, float& out) const override {
    return read(floats_, {row, col}, out);
  }
  bool getInt64(std::uint8_t row, std::uint8_t col, std::int64_t& out) const override {
    return read(int64s_, {row, col}, out);
  }
  bool getString(std::uint8_t row, std::uint8_t col, std::string& out) const override {
    return read(strings_, {row, col}, out);
  }
  rw_table_like* clone() const override;

  void setBool(std::uint8_t row, std::uint8_t col, bool value) override {
    bools_.insert_or_assign({row, col}, value);
  }
  void setFloat(std::uint8_t row, std::uint8_t col, float value) override {
    floats_.insert_or_assign({row, col}, value);
  }
  void setInt64(std::uint8_t row, std::uint8_t col, std::int64_t value) override {
    int64s_.insert_or_assign({row, col}, value);
  }
  void setString(std::uint8_t row, std::uint8_t col, std::string value) override {
    strings_.insert_or_assign({row, col}, std::move(value));
  }
  void update(const table_like* source) override;

 private:
  cell_map<bool> bools_;
  cell_map<float> floats_;
  cell_map<std::int64_t> int64s_;
  Strings strings_;
  std::atomic<std::uint16_t> refCount_{1};
};

template <int version, class Strings>
void map_table<version, Strings>::update(const table_like* source) {
  const auto* other = dynamic_cast<const map_table*>(source);
  if (other == nullptr) {
    throw unsupported_error();
  }
  merge(bools_, other->bools_);
  merge(floats_, other->floats_);
  merge(int64s_, other->int64s_);
  merge(strings_, other->strings_);
}

template <int version, class Strings>
rw_table_like* map_table<version, Strings>::clone() const {
  try {
    auto copy = std::make_unique<map_table>();
    copy->update(this);
    return copy.release();
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
    return nullptr;
  }
}

}  // namespace core_table

rw_table_like* Table__Create() {
  return new core_table::map_table<CORE_VERSION, core_table::cell_map<std::string>>;
}

}  // namespace Zavik::Support
