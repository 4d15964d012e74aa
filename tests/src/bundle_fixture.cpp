#include "tests/src/bundle_fixture.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <regex>
#include <typeinfo>

#include "platform/log2/log_sink.h"
#include "src/gev_driver.h"

namespace {
bool clockIsDriven = false;
}

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* time);
// Put in the place of clock_gettime, for all that is linked into the tests, by the linker's --wrap.
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (clock != CLOCK_REALTIME || !(test::pretendedTime || clockIsDriven)) {
    return __real_clock_gettime(clock, time);
  }
  const auto us = static_cast<std::int64_t>(sim::clock_us());
  *time = test::pretendedTime.value_or(timespec{us / 1'000'000, us % 1'000'000 * 1000});
  return 0;
}
}

namespace test {

std::optional<timespec> pretendedTime;

namespace {

std::mutex linesLock;  // the threaded tests write from several threads
std::vector<std::string> lines;

void append(const std::string& line) {
  const std::lock_guard guard(linesLock);
  lines.push_back(line);
}

// What the simulated cameras' library says is not the bundle's.
bool isOfPlatform(const std::filesystem::path& file) {
  return *file.begin() == "platform";
}

bool isFeatureAccess(const std::string& line) {
  static const std::regex kAccess("> (access|read|min|max|inc|write) .*");
  return std::regex_match(line, kAccess);
}

template <class... Functions>
struct overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
overloaded(Functions...) -> overloaded<Functions...>;  // which clang 14 does not deduce by itself

void appendLogLine(void*, const log_line* line) {
  const std::filesystem::path file = line->file;
  EXPECT_TRUE(std::filesystem::exists(SOURCE_DIR / file)) << "no path from the root: " << file;
  if (!isOfPlatform(file)) {
    append(std::to_string(line->level) + " " + file.stem().string() + "." + line->function + ": " +
           line->text);
  }
}

}  // namespace

settings& settings::pin(std::uint8_t col, std::int64_t ref, std::int64_t source, std::int64_t inverter,
                        std::optional<std::int64_t> ratio) {
  set(property::PIN_COUNT, std::int64_t{col} + 1);
  set(property::PINx_REF, ref, col).set(property::PINx_SOURCE, source, col);
  set(property::PINx_INVERTER, inverter, col);
  return ratio ? set(property::PINx_EXPOSURE_RATIO, *ratio, col) : *this;
}

void settings::fill(rw_table_like& table) const {
  for (const auto& [key, value] : cells_) {
    const auto row = static_cast<std::uint8_t>(key.first);
    const std::uint8_t col = key.second;
    std::visit(overloaded{[&](bool flag) { table.setBool(row, col, flag); },
                          [&](float number) { table.setFloat(row, col, number); },
                          [&](std::int64_t number) { table.setInt64(row, col, number); },
                          [&](const std::string& text) { table.setString(row, col, text); }},
               value);
  }
}

table_ptr settings::table() const {
  table_ptr made(Zavik::Support::Table__Create());
  fill(*made);
  return made;
}

settings configuration() {
  settings config = sweep(4000, 0);
  config.set(property::DEV_SERIAL, "CAM1").set(property::MISC_STREAM_PACKET_SIZE_BYTES_MAX, 8192);
  config.set(property::VS_ACQ_FPS_HZ, 25.0F).set(property::VS_ACQ_FRAME_FORMAT, 1);
  config.set(property::VS_ACQ_ROTATE180, false).set(property::VS_ACQ_SENSOR_X, 0);
  config.set(property::VS_ACQ_SENSOR_Y, 0).set(property::VS_ACQ_SENSOR_W, 640);
  return config.set(property::VS_ACQ_SENSOR_H, 480);
}

settings sweep(float exposureUs, std::int64_t irLevel) {
  settings rows;
  return rows.set(property::VS_SWEEP_MANUAL_EXPOSURE_USEC, exposureUs)
      .set(property::VS_SWEEP_MANUAL_IR_LEVEL, irLevel);
}

void host::append(const std::string& call, const std::string& details) {
  test::append("host " + call + details);
  if (const auto hook = during.find(call); hook != during.end()) {
    hook->second();
  }
}

std::int32_t host::getPendingSignal() {
  append("getPendingSignal");
  if (signals.empty()) {
    return mg::kPENDING_SIGNAL__SIGTERM;
  }
  const std::int32_t signal = signals.front();
  signals.pop_front();
  return signal;
}

bool host::tryPopPendingSweepConf(rw_table_like* table) {
  append("tryPopPendingSweepConf");
  if (sweeps.empty()) {
    return false;
  }
  sweeps.front().fill(*table);
  sweeps.pop_front();
  return true;
}

void host::onFrame(const mg::cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) {
  frames.push_back(*info);
  picture.assign(data, data + byteCount);
  append("onFrame");
}

bundle_test::bundle_test() {
  cameras("serial=CAM1 sensor=640x480 picture=still");
  lines.clear();
  LogSetSink(appendLogLine, nullptr);
}

bundle_test::~bundle_test() {
  closeCamera();
  LogSetSink(nullptr, nullptr);
  const sim::open_counts open = sim::open_now();
  EXPECT_EQ(open.cameras + open.transfers + open.frames, 0) << "something is left open";
  sim::reset();
  clockIsDriven = false;
}

GenApi::CNodeMapRef* bundle_test::getDevParams() {
  if (lookupsLeft_ > 0 && --lookupsLeft_ == 0) {
    atLookup_();
  }
  return nodeMap;
}

void bundle_test::atLookup(int n, std::function<void()> action) {
  lookupsLeft_ = n;
  atLookup_ = std::move(action);
}

void bundle_test::cameras(const std::string& description, bool driven) {
  sim::reset();
  sim::add_cameras(description);
  clockIsDriven = driven;
  if (driven) {
    sim::drive_clock(1'000'000);
  }
  EXPECT_EQ(GevApiInitialize(), 0);
  sim::journal([](const std::string& line) { append("> " + line); });
}

void bundle_test::openCamera() {
  GEV_DEVICE_INTERFACE record{};
  int count = 0;
  ASSERT_EQ(GevGetCameraList(&record, 1, &count), 0);
  ASSERT_EQ(GevOpenCamera(&record, GevControlMode, &handle), 0);
  nodeMap = static_cast<GenApi::CNodeMapRef*>(GevGetFeatureNodeMap(handle));
  seen();
}

void bundle_test::closeCamera() {
  if (handle != nullptr) {
    GevCloseCamera(&handle);
  }
}

std::string bundle_test::take(const std::function<bool(const std::string&)>& wanted) {
  const std::lock_guard guard(linesLock);
  std::string text = "\n";
  bool isJoined = false;  // the line before was an access as well
  for (const std::string& line : lines) {
    if (!wanted(line)) {
      continue;
    }
    if (isJoined && isFeatureAccess(line)) {
      text.replace(text.size() - 1, 1, ", " + line.substr(2) + "\n");
    } else {
      text += line + "\n";
    }
    isJoined = isFeatureAccess(line);
  }
  lines.clear();
  return text;
}

std::string bundle_test::writes() {
  return std::regex_replace(seenWith({"> write "}).substr(1), std::regex("(> |, )write ([^,\n]*)\n?"), "$2 ");
}

std::string bundle_test::seenWith(const std::vector<std::string>& parts) {
  return take([&](const std::string& line) {
    return std::any_of(parts.begin(), parts.end(),
                       [&](const std::string& part) { return line.find(part) != std::string::npos; });
  });
}

std::string raised(const std::function<void()>& action) {
  try {
    action();
    return "none";
  } catch (const GenICam::GenericException& error) {
    return error.what();
  } catch (const Zavik::generic_error& error) {
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, nullptr), std::free);
    return std::string(name.get()).substr(std::string("Zavik::").size());
  } catch (const std::exception& error) {
    return error.what();
  }
}

std::int32_t runDevice(host& host, const settings& config) {
  const table_ptr table = config.table();
  mg::device_like* device = gigev2::Driver__CreateDevice(&host, table.get());
  if (device == nullptr) {
    return -1;
  }
  const std::int32_t result = device->run(&host);
  device->destroy();
  return result;
}

}  // namespace test
