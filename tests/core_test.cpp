// The property table, the errors and the clock: what host and bundle share.
#include <dlfcn.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <thread>

#include "core/numeric.h"
#include "core/time_helpers.h"
#include "src/camera/gev_gamma.h"
#include "tests/support.h"

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

using Zavik::Support::rw_table;
using Zavik::Support::table;
using Zavik::Support::Table__Create;

// Catches cells that are mixed up between types, rows or columns, and reads that touch what they don't find.
TEST(property_table, keeps_cells_apart_by_row_column_and_type) {
  const table_ptr cells(Table__Create());
  cells->setBool(1, 0, true);
  cells->setInt64(1, 0, 7);
  cells->setFloat(1, 255, 1.5F);
  cells->setFloat(1, 255, 2.0F);
  cells->setFloat(2, 0, -1.0F);
  cells->setString(4, 0, "");
  bool flag = false;
  std::int64_t integer = 0;
  float number = 0;
  std::string text = "untouched";
  EXPECT_TRUE(cells->getBool(1, 0, flag) && flag);
  EXPECT_TRUE(cells->getInt64(1, 0, integer) && integer == 7);
  EXPECT_TRUE(cells->getFloat(1, 255, number) && number == 2.0F);
  EXPECT_TRUE(cells->getFloat(2, 0, number) && number == -1.0F);
  EXPECT_FALSE(cells->getFloat(1, 0, number) || cells->getInt64(2, 0, integer) ||
               cells->getBool(0, 1, flag) || cells->getString(1, 0, text));
  EXPECT_TRUE(number == -1.0F && integer == 7 && flag && text == "untouched");
  EXPECT_TRUE(cells->getString(4, 0, text) && text.empty());
}

// Catches a copy that shares cells, a merge that drops or keeps the wrong side, and a foreign table taken for
// one's own.
TEST(property_table, clones_and_merges) {
  const table_ptr target =
      settings().set(property{2}, 25.0F).set(property{3}, 1).set(property{5}, true).table();
  const table_ptr source = settings().set(property{2}, 30.0F).set(property{5}, "text", 9).table();
  target->update(source.get());
  target->update(target.get());
  const table_ptr copy(target->clone());
  copy->setFloat(2, 0, 1.0F);
  float number = 0;
  std::int64_t integer = 0;
  std::string text;
  bool flag = false;
  EXPECT_TRUE(target->getFloat(2, 0, number) && number == 30.0F);
  EXPECT_TRUE(copy->getInt64(3, 0, integer) && integer == 1 && copy->getBool(5, 0, flag) && flag);
  EXPECT_TRUE(copy->getString(5, 9, text) && text == "text");
  EXPECT_FALSE(source->getInt64(3, 0, integer));
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
  std::string text;
  EXPECT_TRUE(target->getString(5, 9, text));
  EXPECT_EQ(text, "text");
  const table_ptr next = table_of(NEXT_CORE);
  EXPECT_EQ(raised([&] { target->update(next.get()); }), "unsupported_error");
}

// The numbers that host and bundle exchange: a row or value that moves does not compile.
constexpr std::array<property, 18> kRows = {property::DEV_SERIAL,
                                            property::MISC_STREAM_PACKET_SIZE_BYTES_MAX,
                                            property::VS_ACQ_FPS_HZ,
                                            property::VS_ACQ_FRAME_FORMAT,
                                            property::VS_ACQ_ROTATE180,
                                            property::VS_ACQ_SENSOR_X,
                                            property::VS_ACQ_SENSOR_Y,
                                            property::VS_ACQ_SENSOR_W,
                                            property::VS_ACQ_SENSOR_H,
                                            property::VS_SWEEP_MANUAL_GAMMA,
                                            property::VS_SWEEP_MANUAL_GAIN_DB,
                                            property::VS_SWEEP_MANUAL_EXPOSURE_USEC,
                                            property::VS_SWEEP_MANUAL_IR_LEVEL,
                                            property::PIN_COUNT,
                                            property::PINx_REF,
                                            property::PINx_SOURCE,
                                            property::PINx_INVERTER,
                                            property::PINx_EXPOSURE_RATIO};
constexpr bool rowsStand() {
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    if (static_cast<std::size_t>(kRows[i]) != i + (i > 14 ? 1 : 0)) {
      return false;
    }
  }
  return sizeof(property) == 1;
}
static_assert(rowsStand());
static_assert(mg::kPENDING_SIGNAL__NONE == 0 && mg::kPENDING_SIGNAL__SIGHUP == 1 &&
              mg::kPENDING_SIGNAL__SIGTERM == 2);
static_assert(gigev2::kGEV_GAMMA_STATE__UNKNOWN == 0 && gigev2::kGEV_GAMMA_STATE__OFF == 1 &&
              gigev2::kGEV_GAMMA_STATE__GAMMA == 2 && gigev2::kGEV_GAMMA_STATE__OTHER == 3);
template <class Interface>
constexpr bool kOnlySlots = sizeof(Interface) == sizeof(void*) && std::is_abstract_v<Interface>;
static_assert(kOnlySlots<table_like> && kOnlySlots<rw_table_like> &&
              std::has_virtual_destructor_v<table_like>);
static_assert(kOnlySlots<mg::device_like> && !std::has_virtual_destructor_v<mg::device_like>);
static_assert(kOnlySlots<mg::device_handler_like> && !std::has_virtual_destructor_v<mg::device_handler_like>);
static_assert(kOnlySlots<mg::cam_stream_handler_like> &&
              !std::has_virtual_destructor_v<mg::cam_stream_handler_like>);

// A table of the host's own making.
class counting_table : public table_like {
 public:
  void retain() override { ++references; }
  void release() override { --references; }
  bool getBool(std::uint8_t, std::uint8_t, bool&) const override { return false; }
  bool getFloat(std::uint8_t, std::uint8_t, float&) const override { return false; }
  bool getInt64(std::uint8_t row, std::uint8_t col, std::int64_t& out) const override {
    out = (std::int64_t{1} << 32U) + std::int64_t{row} * 256 + col;
    return true;
  }
  bool getString(std::uint8_t, std::uint8_t, std::string&) const override { return false; }
  rw_table_like* clone() const override { return nullptr; }

  int references = 1;
};

// Catches a reference that is lost or kept by a holder, and a row or code that is cut wrongly.
TEST(property_table, is_held_for_a_scope) {
  counting_table foreign;
  {
    const table<property, table_like> held(&foreign);
    EXPECT_EQ(foreign.references, 2);
    std::uint32_t code = 0;
    EXPECT_TRUE(held.getIntEnum(property::PINx_REF, 255, code));
    EXPECT_EQ(code, 14U * 256 + 255);
  }
  EXPECT_EQ(foreign.references, 1);
  const table_ptr own(Table__Create());
  EXPECT_EQ(raised([&] { own->update(&foreign); }), "unsupported_error");
  using holder = table<property, table_like>;
  EXPECT_EQ(raised([] { holder null(nullptr); }), "unsupported_error");
  EXPECT_EQ(raised([] { rw_table<property> null(nullptr); }), "unsupported_error");
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

// Catches a changed parent, which changes what a boundary catches, and a text of the bundle's own.
TEST(errors, form_one_tree_and_carry_no_text) {
  using namespace Zavik;
  static_assert(
      std::is_base_of_v<std::exception, generic_error> && std::is_base_of_v<generic_error, internal_error> &&
      std::is_base_of_v<internal_error, unsupported_error> &&
      std::is_base_of_v<generic_error, external_error> && std::is_base_of_v<external_error, params_error> &&
      std::is_base_of_v<external_error, not_found_error> &&
      !std::is_base_of_v<internal_error, external_error>);
  static_assert(sizeof(not_found_error) == sizeof(std::exception) &&
                std::has_virtual_destructor_v<generic_error>);
  EXPECT_STREQ(params_error().what(), std::exception().what());
}

// Catches a wrong unit, rounding instead of cutting, and nanoseconds that are not carried.
TEST(time_helpers, tell_the_realtime_clock) {
  pretendedTime = timespec{100, 900'000'999};
  EXPECT_EQ(Time__GetTimeUsec(), 100'900'000U);
  EXPECT_EQ(Time__GetTimeMsec(), 100'900U);
  EXPECT_EQ(Time__GetTimeSec(), 100);
  pretendedTime->tv_nsec = 900'000'000;
  struct {
    void (*fill)(timespec*, std::uint64_t);
    std::uint64_t amount;
    timespec until;
  } const cases[] = {{Time__GetTimeUntilMsec, 1'500, {102, 400'000'000}},
                     {Time__GetTimeUntilMsec, 100, {101, 0}},
                     {Time__GetTimeUntilUsec, 1'099'999, {101, 999'999'000}},
                     {Time__GetTimeUntilUsec, 1'100'000, {102, 0}},
                     {Time__GetTimeUntilSec, 7, {107, 900'000'000}},
                     {Time__GetTimeUntilSec, UINT64_MAX, {std::numeric_limits<time_t>::max(), 900'000'000}},
                     {Time__GetTimeUntilUsec, UINT64_MAX, {100 + 18'446'744'073'710, 451'615'000}}};
  for (const auto& [fill, amount, until] : cases) {
    timespec filled{};
    fill(&filled, amount);
    EXPECT_TRUE(filled.tv_sec == until.tv_sec && filled.tv_nsec == until.tv_nsec)
        << amount << ": " << filled.tv_sec << " " << filled.tv_nsec;
  }
  pretendedTime.reset();
}

// Catches a conversion that the language leaves undefined.
TEST(numeric, truncates_every_value) {
  using Zavik::truncateTo;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(truncateTo<std::int64_t>(-1.9), -1);
  EXPECT_EQ(truncateTo<std::int64_t>(std::ldexp(-1.0, 63)), INT64_MIN);
  EXPECT_EQ(truncateTo<std::uint64_t>(std::ldexp(1.0, 63)), std::uint64_t{1} << 63U);
  EXPECT_EQ(truncateTo<std::uint64_t>(-0.5), 0U);
  for (const double none : {std::nan(""), kInfinity, -kInfinity, 1e300, std::ldexp(1.0, 63)}) {
    EXPECT_EQ(truncateTo<std::int64_t>(none), 0) << none;
  }
}

}  // namespace
}  // namespace test
