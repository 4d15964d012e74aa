// The bundle as a host sees it that shares nothing with it but the contract: it loads the built library, and
// knows objects only as pointers to tables of functions, called and implemented by their numbers.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using slot = void (*)();

/// An object of the other side, or one that is made here to be called by it.
struct object {
  const slot* slots;
};

template <class Result, class... Arguments>
Result call(object* self, std::size_t number, Arguments... arguments) {
  return reinterpret_cast<Result (*)(object*, Arguments...)>(self->slots[number])(self, arguments...);
}

template <class Function>
slot entry(Function* function) {
  return reinterpret_cast<slot>(function);
}

// Numbers of the slots; a virtual destructor takes two.
enum { kRun = 0, kCollectStats = 1, kDestroy = 2 };
enum { kRetain = 2, kRelease = 3, kGetFloat = 5, kGetInt64 = 6, kGetString = 7, kClone = 8 };
enum { kSetBool = 9, kSetFloat = 10, kSetInt64 = 11, kSetString = 12, kUpdate = 13 };

// ---- the host's table: rows of column 0

struct host_table : object {
  std::map<std::uint8_t, float> floats{{2, 50.0F}, {10, 6.0F}, {11, 2000.0F}};
  std::map<std::uint8_t, std::int64_t> integers{{1, 1500}, {3, 1},  {5, 64}, {6, 32}, {7, 320}, {8, 240},
                                                {12, 1},   {13, 1}, {14, 6}, {16, 3}, {17, 2},  {18, 50}};
  int references = 1;
};

template <class Map, class Value>
bool find(const Map& cells, std::uint8_t row, std::uint8_t col, Value& out) {
  const auto cell = cells.find(row);
  if (col != 0 || cell == cells.end()) {
    return false;
  }
  out = cell->second;
  return true;
}

void retain(host_table* self) {
  ++self->references;
}
void release(host_table* self) {
  --self->references;
}
bool getBool(const host_table*, std::uint8_t row, std::uint8_t, bool& out) {
  out = true;
  return row == 4;
}
bool getFloat(const host_table* self, std::uint8_t row, std::uint8_t col, float& out) {
  return find(self->floats, row, col, out);
}
bool getInt64(const host_table* self, std::uint8_t row, std::uint8_t col, std::int64_t& out) {
  return find(self->integers, row, col, out);
}
bool getString(const host_table*, std::uint8_t row, std::uint8_t, std::string& out) {
  out = "WIRED";
  return row == 0;
}
const std::array<slot, 9> tableSlots = {nullptr,         nullptr,          entry(retain),
                                        entry(release),  entry(getBool),   entry(getFloat),
                                        entry(getInt64), entry(getString), nullptr};

// ---- the host's handlers

int heartbeats = 0;
int ticks = 0;
int emptyWaits = 0;
int sweeps = 0;
std::vector<std::array<std::uint8_t, 24>> frames;
std::uint32_t bytes = 0;

void heartbeat(object*) {
  ++heartbeats;
}
std::int32_t getPendingSignal(object*) {
  return heartbeats < 4 ? 0 : 2;
}
bool tryPopPendingSweepConf(object*, object* sweep) {
  if (++sweeps != 2) {
    return false;
  }
  float number = 0;
  std::int64_t integer = 0;
  std::string text;
  call<void, std::uint8_t, std::uint8_t, bool>(sweep, kSetBool, 200, 1, true);
  call<void, std::uint8_t, std::uint8_t, float>(sweep, kSetFloat, 11, 0, 1000.0F);
  call<void, std::uint8_t, std::uint8_t, std::int64_t>(sweep, kSetInt64, 12, 0, 0);
  call<void, std::uint8_t, std::uint8_t, std::string>(sweep, kSetString, 200, 2, "text");
  auto* copy = call<object*>(sweep, kClone);
  call<void, std::uint8_t, std::uint8_t, float>(copy, kSetFloat, 10, 0, 12.0F);
  call<void, const object*>(sweep, kUpdate, copy);
  call<void>(copy, kRelease);
  call<void>(sweep, kRetain);
  call<void>(sweep, kRelease);
  EXPECT_TRUE((call<bool, std::uint8_t, std::uint8_t, float&>(sweep, kGetFloat, 10, 0, number)) &&
              number == 12.0F);
  EXPECT_TRUE((call<bool, std::uint8_t, std::uint8_t, std::int64_t&>(sweep, kGetInt64, 12, 0, integer)) &&
              integer == 0);
  EXPECT_TRUE((call<bool, std::uint8_t, std::uint8_t, std::string&>(sweep, kGetString, 200, 2, text)) &&
              text == "text");
  return true;
}
void onFrameTick(object*, float tempC) {
  ticks += tempC > 0.0F ? 1 : 0;
}
void onFrame(object*, const void* info, const std::uint8_t* data, std::uint32_t byteCount) {
  std::memcpy(frames.emplace_back().data(), info, 24);
  bytes += data[byteCount - 1] * 0U + byteCount;
}
void onNoFrame(object*) {
  ++emptyWaits;
}
const std::array<slot, 3> handlerSlots = {entry(heartbeat), entry(getPendingSignal),
                                          entry(tryPopPendingSweepConf)};
const std::array<slot, 3> streamSlots = {entry(onFrameTick), entry(onFrame), entry(onNoFrame)};

template <class Value>
Value field(const std::array<std::uint8_t, 24>& frame, std::size_t offset) {
  Value value{};
  std::memcpy(&value, frame.data() + offset, sizeof value);
  return value;
}

void* load(const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_GLOBAL);
  EXPECT_NE(library, nullptr) << dlerror();
  return library;
}

// Catches a moved slot, a changed row or field, and an object that either side frees wrongly.
TEST(foreign_host, drives_a_camera_through_slots) {
  setenv("SIM_CAMERAS", "serial=WIRED sensor=640x480 pacing=free", 1);
  setenv("LOG2_LEVEL", "2", 1);
  load(GEVAPI_LIBRARY);
  load(LOG2_LIBRARY);
  void* bundle = dlopen(BUNDLE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(bundle, nullptr) << dlerror();
  const auto init = reinterpret_cast<std::int32_t (*)()>(dlsym(bundle, "MgBundleInit"));
  const auto create = reinterpret_cast<object* (*)(object*, object*)>(dlsym(bundle, "MgBundleCreateDevice"));
  const auto fini = reinterpret_cast<void (*)()>(dlsym(bundle, "MgBundleFini"));
  ASSERT_TRUE(init != nullptr && create != nullptr && fini != nullptr);

  EXPECT_EQ(init(), 1);
  object handler{handlerSlots.data()};
  object stream{streamSlots.data()};
  host_table config;
  config.slots = tableSlots.data();
  object* device = create(&handler, &config);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(config.references, 1);
  std::string json;
  const auto keep = [](void* context, const char* text) { *static_cast<std::string*>(context) = text; };
  EXPECT_EQ((call<std::int32_t, object*>(device, kRun, &stream)), 2);
  call<void, void (*)(void*, const char*), void*>(device, kCollectStats, keep, &json);
  call<void>(device, kDestroy);
  fini();

  EXPECT_TRUE(heartbeats == 4 && ticks == 4 && emptyWaits == 1 && sweeps == 3)
      << heartbeats << ticks << emptyWaits << sweeps;
  ASSERT_EQ(frames.size(), 3U);
  EXPECT_EQ(bytes, 3U * 320 * 240);
  EXPECT_GT(field<std::uint64_t>(frames[0], 0), std::uint64_t{1'500'000'000'000'000});
  EXPECT_TRUE(field<float>(frames[0], 8) == 2000.0F && field<float>(frames[2], 8) == 1000.0F);
  EXPECT_NEAR(field<float>(frames[0], 12), 6.0, 0.01);
  EXPECT_NEAR(field<float>(frames[2], 12), 12.0, 0.01);
  EXPECT_EQ(field<std::uint16_t>(frames[0], 16), 320);
  EXPECT_EQ(field<std::uint16_t>(frames[0], 18), 240);
  EXPECT_EQ(field<std::uint32_t>(frames[0], 20), 1U);
  EXPECT_EQ(
      json.rfind(R"({"type":"mediagrabber~device","name": "mediagrabber.0~device.0","stat": {"temp": )", 0),
      0U);
  dlclose(bundle);
}

std::string output(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> part{};
  while (pipe != nullptr && fgets(part.data(), part.size(), pipe) != nullptr) {
    text += part.data();
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

// Catches a symbol that slips out, and a library that is needed without having been asked for.
TEST(foreign_host, finds_three_symbols_and_no_dependency_but_the_two_libraries) {
  EXPECT_EQ(output("nm -D --defined-only --format=just-symbols " BUNDLE_LIBRARY " | sort"),
            "MgBundleCreateDevice\nMgBundleFini\nMgBundleInit\n");
  const std::string dynamic = output("readelf -d " BUNDLE_LIBRARY);
  EXPECT_EQ(dynamic.find("PATH"), std::string::npos) << dynamic;
  if (std::strlen(SANITIZERS) == 0) {
    EXPECT_EQ(
        output(
            "readelf -d " BUNDLE_LIBRARY
            " | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p' | grep -vE '^lib(c|m|gcc_s|stdc..)\\.so' | sort"),
        "libGevApi.so.2\nliblog2.so\n");
  }
}

// Catches a bundle that runs on a library whose node interfaces are laid out otherwise.
TEST(foreign_host, is_told_why_another_camera_library_does_not_fit) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        load(OTHER_GEVAPI_LIBRARY);
        load(LOG2_LIBRARY);
        const bool loaded = dlopen(BUNDLE_LIBRARY, RTLD_NOW) != nullptr;
        std::fputs(loaded ? "loaded" : dlerror(), stderr);
        std::exit(loaded ? 0 : 7);
      },
      testing::ExitedWithCode(7), "built_with_stand_in_GenApi_headers");
}

}  // namespace
