// What tests of core, bundle and simulated cameras share: the configuration of a camera, a host, and a
// transcript of what happened in a run.
#ifndef TESTS_SRC_BUNDLE_FIXTURE_H
#define TESTS_SRC_BUNDLE_FIXTURE_H

#include <gevapi.h>
#include <gmock/gmock.h>
#include <mediagrabber/bundle.h>
#include <mediagrabber/property.h>

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/sim/sim.h"
#include "src/camera/param_provider.h"

namespace test {

namespace mg = Zavik::Support::MediaGrabber;
namespace gigev2 = Zavik::Support::MediaGrabber::Gigev2;
using mg::property;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Zavik::Support::rw_table_like;
using Zavik::Support::table_like;

/// What the realtime clock shows to the code under test. Without it, the cameras' clock while that is driven.
extern std::optional<timespec> pretendedTime;

struct releaser {
  void operator()(table_like* table) const { table->release(); }
};
using table_ptr = std::unique_ptr<rw_table_like, releaser>;

/// A host's table of its own making, which reads from another one. A test overrides what it is about.
class forwarding_table : public table_like {
 public:
  explicit forwarding_table(table_like& rows) : rows_(rows) {}
  void retain() override {}
  void release() override {}
  bool getBool(std::uint8_t row, std::uint8_t col, bool& out) const override {
    return rows_.getBool(row, col, out);
  }
  bool getFloat(std::uint8_t row, std::uint8_t col, float& out) const override {
    return rows_.getFloat(row, col, out);
  }
  bool getInt64(std::uint8_t row, std::uint8_t col, std::int64_t& out) const override {
    return rows_.getInt64(row, col, out);
  }
  bool getString(std::uint8_t row, std::uint8_t col, std::string& out) const override {
    return rows_.getString(row, col, out);
  }
  rw_table_like* clone() const override { return rows_.clone(); }

 private:
  table_like& rows_;
};

/// The rows of a table, to be changed before it is made.
class settings {
 public:
  using cell = std::variant<bool, float, std::int64_t, std::string>;

  settings& set(property row, cell value, std::uint8_t col = 0) {
    cells_[{row, col}] = std::move(value);
    return *this;
  }
  settings& without(property row, std::uint8_t col = 0) {
    cells_.erase({row, col});
    return *this;
  }
  /// An IR output: reference, source, inverter and, for source 3, ratio.
  settings& pin(std::uint8_t col, std::int64_t ref, std::int64_t source, std::int64_t inverter,
                std::optional<std::int64_t> ratio = std::nullopt);
  void fill(rw_table_like& table) const;
  table_ptr table() const;

 private:
  std::map<std::pair<property, std::uint8_t>, cell> cells_;
};

/// Every row that is required, for the camera of the fixture: the whole sensor, 25 frames a second, 4000
/// microseconds, IR off, no gain, no gamma, no pins.
settings configuration();
/// A sweep of the two required rows.
settings sweep(float exposureUs, std::int64_t irLevel);

/// Handler and stream handler of a device, which answers from a script and writes every call into the
/// transcript.
class host final : public mg::device_handler_like, public mg::cam_stream_handler_like {
 public:
  void heartbeat() override { append("heartbeat"); }
  std::int32_t getPendingSignal() override;
  bool tryPopPendingSweepConf(rw_table_like* table) override;
  void onFrameTick(float sensorTempC) override { append("onFrameTick", " " + std::to_string(sensorTempC)); }
  void onFrame(const mg::cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) override;
  void onNoFrame() override { append("onNoFrame"); }

  std::deque<std::int32_t> signals;  ///< answers, frame by frame; SIGTERM when used up
  std::deque<settings> sweeps;       ///< handed out one a question, an empty one as "none pending"
  std::vector<mg::cam_frame_info> frames;
  std::vector<std::uint8_t> picture;  ///< pixels of the last frame
  /// Run at the beginning of the host call of that name.
  std::map<std::string, std::function<void()>> during;

 private:
  void append(const std::string& call, const std::string& details = "");
};

/// A camera library with one simulated camera, "CAM1", on a clock that stands still, and the transcript.
///
/// A line of the transcript is "LEVEL FILE.FUNCTION: TEXT" for a log line, "> CALL" for a call or an access
/// that the camera library sees, "host CALL" for a host call. Accesses to features without anything between
/// share a line:
/// "> min Gain, max Gain". Every test ends with nothing left open.
class bundle_test : public ::testing::Test, public gigev2::param_provider_like {
 protected:
  bundle_test();
  ~bundle_test() override;

  GenApi::CNodeMapRef* getDevParams() override;
  /// Runs `action` when the node map is asked for the n-th time from now on, before it is given.
  void atLookup(int n, std::function<void()> action);

  /// Replaces the camera by others, on a driven clock or on the real one.
  static void cameras(const std::string& description, bool driven = true);
  /// Opens CAM1 for tests below the connection; nodeMap is its node map.
  void openCamera();
  void closeCamera();

  /// What was seen since the last call: everything, or the log lines.
  std::string seen() {
    return take([](const std::string&) { return true; });
  }
  std::string logged() {
    return take([](const std::string& line) { return line[0] >= '1' && line[0] <= '5'; });
  }
  /// The features written: "Width=320 Height=240 ".
  std::string writes();
  /// The lines that contain one of the parts.
  std::string seenWith(const std::vector<std::string>& parts);
  /// "CAM1"'s feature as the camera has it.
  static std::string feature(const std::string& name, const std::string& selected = "") {
    return sim::feature("CAM1", name, selected);
  }

  GEV_CAMERA_HANDLE handle = nullptr;
  GenApi::CNodeMapRef* nodeMap = nullptr;

 private:
  std::string take(const std::function<bool(const std::string&)>& wanted);

  int lookupsLeft_ = 0;
  std::function<void()> atLookup_;
};

/// The name of the exception that `action` raises: of the bundle, the node map, or the standard library;
/// "none".
std::string raised(const std::function<void()>& action);

/// Makes a device of `config`, runs it with `host` and destroys it; the result of the run, -1 without a
/// device.
std::int32_t runDevice(host& host, const settings& config);

}  // namespace test

#endif
