// The property table.
#include "core/table.h"

#include <dlfcn.h>

#include <cstdlib>
#include <new>
#include <thread>

#include "tests/src/bundle_fixture.h"

namespace {

// Allocations of this thread until one fails; negative: none does.
thread_local int allocationsLeft = -1;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocationsLeft >= 0 && allocationsLeft-- == 0) {
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace test {
namespace {

using Zavik::Support::table;
using Zavik::Support::Table__Create;

// Whether the table has a cell of the value's type, with this value.
bool holds(const table_ptr& cells, std::uint8_t row, std::uint8_t col, const settings::cell& expected) {
  settings::cell found = expected;
  const auto read = [&](auto& value) {
    using type = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<type, bool>) {
      return cells->getBool(row, col, value);
    } else if constexpr (std::is_same_v<type, float>) {
      return cells->getFloat(row, col, value);
    } else if constexpr (std::is_same_v<type, std::string>) {
      return cells->getString(row, col, value);
    } else {
      return cells->getInt64(row, col, value);
    }
  };
  return std::visit(read, found) && found == expected;
}

// Catches cells that are mixed up between types, rows or columns, and reads that touch what they don't find.
TEST(property_table, keeps_cells_apart_by_row_column_and_type) {
  const table_ptr cells(Table__Create());
  cells->setBool(1, 0, true);
  cells->setInt64(1, 0, 7);
  cells->setFloat(1, 255, 1.5F);
  cells->setFloat(1, 255, 2.0F);
  cells->setString(4, 0, "");
  EXPECT_TRUE(holds(cells, 1, 0, true));
  EXPECT_TRUE(holds(cells, 1, 0, 7));
  EXPECT_TRUE(holds(cells, 1, 255, 2.0F));
  EXPECT_TRUE(holds(cells, 4, 0, ""));
  float number = -1;
  std::string text = "untouched";
  EXPECT_FALSE(cells->getFloat(1, 0, number));
  EXPECT_FALSE(cells->getString(1, 0, text));
  EXPECT_EQ(number, -1);
  EXPECT_EQ(text, "untouched");
}

// Catches a copy that shares cells, and a merge that drops or keeps the wrong side.
TEST(property_table, clones_and_merges) {
  const table_ptr target =
      settings().set(property{2}, 25.0F).set(property{3}, 1).set(property{5}, true).table();
  const table_ptr source = settings().set(property{2}, 30.0F).set(property{5}, "text", 9).table();
  target->update(source.get());
  target->update(target.get());
  const table_ptr copy(target->clone());
  copy->setFloat(2, 0, 1.0F);
  EXPECT_TRUE(holds(target, 2, 0, 30.0F));
  EXPECT_TRUE(holds(copy, 3, 0, 1));
  EXPECT_TRUE(holds(copy, 5, 0, true));
  EXPECT_TRUE(holds(copy, 5, 9, "text"));
  EXPECT_FALSE(holds(source, 3, 0, 1));
  EXPECT_EQ(raised([&] { target->update(nullptr); }), "unsupported_error");
}

// A table that another library made, which has a copy of this code for itself.
table_ptr table_of(const char* library) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  const auto make = reinterpret_cast<rw_table_like* (*)()>(dlsym(handle, "make_table"));
  return table_ptr(make());
}

// Catches a host's own table that a sweep cannot be filled from, and cells of another layout that are read.
TEST(property_table, merges_tables_of_other_libraries_of_its_version) {
  const table_ptr target(Table__Create());
  const table_ptr same = table_of(SAME_CORE);
  settings().set(property{2}, 30.0F).set(property{5}, "text", 9).fill(*same);
  target->update(same.get());
  EXPECT_TRUE(holds(target, 5, 9, "text"));
  const table_ptr next = table_of(NEXT_CORE);
  EXPECT_EQ(raised([&] { target->update(next.get()); }), "unsupported_error");
}

class counting_table : public forwarding_table {
 public:
  using forwarding_table::forwarding_table;
  void retain() override { ++references; }
  void release() override { --references; }

  int references = 1;
};

// Catches a reference that is lost or kept by a holder, and a row or code that is cut wrongly.
TEST(property_table, is_held_for_a_scope) {
  const table_ptr own = settings().set(property::PINx_REF, (std::int64_t{1} << 32U) + 14, 255).table();
  counting_table foreign(*own);
  {
    const table<property, table_like> held(&foreign);
    EXPECT_EQ(foreign.references, 2);
    std::uint32_t code = 0;
    EXPECT_TRUE(held.getIntEnum(property::PINx_REF, 255, code));
    EXPECT_EQ(code, 14U);
  }
  EXPECT_EQ(foreign.references, 1);
  EXPECT_EQ(raised([&] { own->update(&foreign); }), "unsupported_error");
  using holder = table<property, table_like>;
  EXPECT_EQ(raised([] { holder null(nullptr); }), "unsupported_error");
}

// Catches a count that is not atomic (under the thread sanitizer) or frees twice or never (under the address
// sanitizer).
TEST(property_table, is_freed_once_by_the_last_of_many_threads) {
  rw_table_like* shared = Table__Create();
  std::vector<std::thread> holders;
  for (int thread = 0; thread < 4; ++thread) {
    shared->retain();
    holders.emplace_back([shared] {
      for (int i = 0; i < 1000; ++i) {
        shared->retain();
        shared->release();
      }
      shared->release();
    });
  }
  shared->release();
  for (std::thread& holder : holders) {
    holder.join();
  }
}

class core_log : public bundle_test {};

// Catches a clone that lets a failed allocation out, or says nothing of it, or leaks half a copy.
TEST_F(core_log, a_clone_without_memory_is_null_and_logged) {
  const table_ptr source =
      settings().set(property{1}, 1.0F).set(property{2}, "text that needs memory of its own").table();
  for (int left = 0; left < 3; ++left) {
    allocationsLeft = left;
    rw_table_like* copy = source->clone();
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(logged(), "\n1 table.clone: fail: exception <std::bad_alloc>\n");
  }
}

}  // namespace
}  // namespace test
