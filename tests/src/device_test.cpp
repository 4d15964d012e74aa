// The device: creation, set-up with its gamma rule, the acquisition loop, statistics.
#include "src/gev_device.h"

#include <thread>

#include "src/gev_driver.h"
#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

class device : public bundle_test {
 protected:
  mg::device_like* create(const settings& rows) {
    const table_ptr table = rows.table();
    return gigev2::Driver__CreateDevice(&host_, table.get());
  }
  /// The log of a creation from the device's constructor on.
  std::string creation(const settings& rows) {
    if (mg::device_like* made = create(rows)) {
      made->destroy();
    }
    const std::string log = logged();
    const std::size_t start = log.find("5 gev_device.device: exec\n");
    return start == std::string::npos ? log : "\n" + log.substr(start);
  }
  /// Runs a device over `frames` frames, with sweeps handed out one a frame from the first on.
  std::int32_t run(const settings& rows, std::size_t frames, std::deque<settings> sweeps = {}) {
    host_.signals.assign(frames, mg::kPENDING_SIGNAL__NONE);
    host_.sweeps = std::move(sweeps);
    return runDevice(host_, rows);
  }
  static std::string stats(mg::device_like& device) {
    std::string json = "no callback";
    device.collectStats([](void* context, const char* text) { *static_cast<std::string*>(context) = text; },
                        &json);
    return json;
  }

  host host_;
};

// Catches a step of the creation that is missing, out of order, or logged from elsewhere.
TEST_F(device, is_created_step_by_step) {
  const settings rows = configuration().set(property::VS_SWEEP_MANUAL_GAIN_DB, 6.0F);
  EXPECT_EQ(creation(rows), R"(
5 gev_device.device: exec
4 gev_device.device: stat: GevTimestampTickFrequency:1000000000
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:1.995262, new-value:1.995262)
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:ExposureTime, old-value:4000.000000, new-value:4000.000000)
4 gev_device.setupCamSweepGamma: done: VS_SWEEP_MANUAL_GAMMA (provided:false)
4 gev_irbox.setup: exec
4 gev_irbox.setup: done
4 gev_device.device: done
4 gev_driver.Driver__CreateDevice: done
)");
  mg::device_like* made = create(configuration());
  EXPECT_EQ(
      seenWith({"__", "GevGetCamera", "FeatureValue ", "ModeActive", "BrightnessMode", "write ExposureTime"}),
      R"(
5 gev_driver.Driver__CreateDevice: exec
5 gev_device.Device__Create: exec
5 gev_camera.CameraApi__Create: exec
> GevGetCameraList 8
> write ExposureTime=4000
4 gev_camera.CameraApi__Create: done
> GevGetCameraInterfaceOptions
> GevGetFeatureValue GevTimestampTickFrequency
> GevSetFeatureValue PixelFormat 17301505
> write ChunkModeActive=1, write autoBrightnessMode=Off, write ExposureTime=4000
4 gev_driver.Driver__CreateDevice: done
)");
  EXPECT_EQ(stats(*made), "no callback");
  made->destroy();
  EXPECT_EQ(seen(), "\n> GevCloseCamera\n");
}

// Catches a tick frequency that is not defaulted, or whose failure counts.
TEST_F(device, defaults_the_tick_frequency) {
  const auto frequency = [&](const std::string& ticks) {
    return "stat: GevTimestampTickFrequency:" + ticks + "\n";
  };
  for (const auto& [ticks, used] : std::map<std::string, std::string>{{"0", "1000000000"},
                                                                      {"31250000", "31250000"},
                                                                      {"4294967296", "1000000000"},
                                                                      {"4294967297", "1"}}) {
    cameras("serial=CAM1 sensor=640x480 ticks=" + ticks);
    EXPECT_THAT(creation(configuration()), HasSubstr(frequency(used)));
  }
  sim::inject("GevGetFeatureValue: status -8");
  EXPECT_THAT(creation(configuration()), HasSubstr(frequency("1000000000")));
}

// Catches an exception that is not converted or not logged, and a device or camera that is left behind.
TEST_F(device, is_not_created_when_a_step_fails) {
  const std::string chain = "1 gev_driver.Driver__CreateDevice: fail\n";
  struct {
    settings rows;
    const char* fault;
    std::string end;
  } const cases[] = {
      {configuration().set(property::VS_ACQ_FRAME_FORMAT, 2), "",
       "fail: unsupported (frame-format:2)\n1 gev_device.device: fail: exception <std::exception>\n"
       "1 gev_device.device: fail: gev-status:-14\n" +
           chain},
      {configuration(), "write ChunkModeActive: access",
       ">\n1 gev_device.device: fail: gev-status:-3\n" + chain},
      {configuration(), "write autoBrightnessMode: memory",
       "1 gev_device.device: fail: exception <std::bad_alloc>\n1 gev_device.device: fail: gev-status:-14\n" +
           chain},
      {configuration().set(property::DEV_SERIAL, "CAM2"), "", "fail: not_found_error\n" + chain},
      {configuration(), "GevSetCameraInterfaceOptions: status -5",
       "4 gev_driver.Driver__CreateDevice: done\n"},
  };
  for (const auto& c : cases) {
    sim::clear_faults();
    sim::inject(c.fault);
    EXPECT_THAT(creation(c.rows), EndsWith(c.end));
    EXPECT_EQ(sim::open_now().cameras, 0);
  }
  EXPECT_EQ(gigev2::Driver__CreateDevice(&host_, nullptr), nullptr);
  EXPECT_THAT(logged(), EndsWith(chain));
  std::shared_ptr<gigev2::camera_api> camera = gigev2::CameraApi__Create(configuration().table().get());
  EXPECT_EQ(raised([&] { new gigev2::device(&host_, nullptr, std::move(camera)); }), "unsupported_error");
}

// Catches a gamma that is applied or skipped on the wrong side of a limit, and the wrong reason for it.
TEST_F(device, applies_the_gamma_rule) {
  sim::alter_feature("CAM1", "gammaCorrection", "min", "0.5");
  sim::alter_feature("CAM1", "gammaCorrection", "max", "2");
  const std::string set = "3 gev_gamma.setGamma: ### set Gamma value: ";
  const std::string skipped = "2 gev_device.setupCamSweepGamma:   asked Gamma val ";
  const std::string off =
      "3 gev_device.setupCamSweepGamma: Disabling LUT/Gamma control follow Gamma configuration\n";
  struct {
    float gamma;
    std::string line;
    const char* mode;  // of the LUT afterwards
  } const cases[] = {{1.5F, set + "1.500000 ###\n", "Active"},
                     {2.02F, skipped + "2.020000 is out of bounds [0.50,2.00], skipped\n", "Active"},
                     {0.48F, skipped + "0.480000 is out of bounds [0.50,2.00], skipped\n", "Active"},
                     {1.0011F, set + "1.001100 ###\n", "Active"},
                     {1.0005F, off, "Off"},
                     {0.9995F, off, "Off"}};
  for (const auto& c : cases) {
    mg::device_like* made = create(configuration().set(property::VS_SWEEP_MANUAL_GAMMA, c.gamma));
    EXPECT_EQ(seenWith({".setGamma:", ".setupCamSweepGamma:"}), "\n" + c.line);
    EXPECT_EQ(feature("lutMode"), c.mode);
    made->destroy();
  }
  // Inside the margin it is passed on; the camera, which has no margin, refuses it.
  EXPECT_EQ(create(configuration().set(property::VS_SWEEP_MANUAL_GAMMA, 2.005F)), nullptr);
  EXPECT_THAT(logged(), HasSubstr("fail: exception <OutOfRangeException: gammaCorrection"));
}

// Catches a transfer that is stopped without need, not stopped, stopped twice or not started again; and steps
// of a sweep that are out of order.
TEST_F(device, stops_the_transfer_only_while_the_lut_is_changed) {
  settings gammaOff = sweep(3000, 0);
  gammaOff.set(property::VS_SWEEP_MANUAL_GAMMA, 1.0F).set(property::VS_ACQ_FPS_HZ, 100.0F);
  settings gammaOn = sweep(2000, 1).set(property::VS_SWEEP_MANUAL_GAMMA, 1.5F);
  gammaOn.set(property::VS_SWEEP_MANUAL_GAIN_DB, 20.0F);
  EXPECT_EQ(run(configuration().pin(0, 5, 2, 1), 3, {gammaOff, gammaOn, gammaOff}), 2);
  const std::string changes = seenWith({"write l", "write L", "write o", "write g",
                                        "write Gain=", "write ExposureTime", "Transfer", "Pending", "amma"});
  EXPECT_EQ(changes.substr(changes.find("host tryPop")), R"(host tryPopPendingSweepConf
> write ExposureTime=3000
3 gev_device.setupCamSweepGamma:   Gamma control is already turned off
> write LineSelector=Line3, write outputLineSource=Off
4 gev_device.run2: done: tryPopPendingSweepConf
host getPendingSignal
host tryPopPendingSweepConf
> write Gain=10, write ExposureTime=2000
> GevAbortTransfer
3 gev_gamma.setGamma: ### Gamma feature is disabled ###
> write lutType=GammaCorrection, write lutMode=Active, write gammaCorrection=1.5
3 gev_gamma.setGamma: ### set Gamma value: 1.500000 ###
> write LineSelector=Line3, write outputLineSource=ExposureActive, write LineInverter=0, write outputLinePulseDelay=0, write outputLinePulseDuration=2000
> GevStartTransfer 4294967295
4 gev_device.run2: done: tryPopPendingSweepConf
host getPendingSignal
host tryPopPendingSweepConf
> write ExposureTime=3000
3 gev_device.setupCamSweepGamma: Disabling LUT/Gamma control follow Gamma configuration
> GevAbortTransfer
> write lutMode=Off, write LineSelector=Line3, write outputLineSource=Off
> GevStartTransfer 4294967295
4 gev_device.run2: done: tryPopPendingSweepConf
host getPendingSignal
> GevAbortTransfer
> GevFreeTransfer
)");
  ASSERT_EQ(host_.frames.size(), 3U);
  EXPECT_EQ(host_.frames[1].gainDb, 20.0F);
  EXPECT_EQ(host_.frames[1].exposureUs, 2000.0F);
}

// Catches a sweep that fails without ending the run, restarts the transfer all the same, or undoes what took
// effect.
TEST_F(device, ends_the_run_when_a_sweep_fails) {
  settings broken = sweep(3000, 0).set(property::VS_SWEEP_MANUAL_GAMMA, 1.5F);
  broken.without(property::VS_SWEEP_MANUAL_IR_LEVEL);
  cameras("serial=CAM1 sensor=640x480 on-close=keep");
  EXPECT_EQ(run(configuration(), 1, {broken}), 1);
  EXPECT_EQ(feature("ExposureTime"), "3000");
  EXPECT_THAT(logged(), EndsWith(R"(
1 gev_irbox.setup: fail: table::getInt64 (row:VS_SWEEP_MANUAL_IR_LEVEL)
1 gev_device.run2: fail: exception <std::exception>
5 gev_camera.stopGrabber: exec
2 gev_camera.stopGrabber: fail: GevAbortTransfer (answer:0xfffffff5)
4 gev_device.run: done
)"));
}

class acquisition : public device {};

// Catches calls of a run, to the host or the camera, that are missing, superfluous or out of order.
TEST_F(acquisition, hands_frames_over_in_a_fixed_order) {
  sim::set_feature("CAM1", "DeviceTemperature", "41.5");
  host_.signals = {mg::kPENDING_SIGNAL__NONE, mg::kPENDING_SIGNAL__SIGTERM};
  sim::inject("frame: empty @2 x1; frame: bad -16 @3 x1");
  EXPECT_EQ(runDevice(host_, configuration()), 2);
  const std::string all = seen();
  EXPECT_EQ("\n" + all.substr(all.find("4 gev_device.run: exec")), R"(
4 gev_device.run: exec
> write lutMode=Off
5 gev_camera.startGrabber: exec
> GevStartTransfer 4294967295
4 gev_camera.startGrabber: done
> GevWaitForNextFrame 1000
> access DeviceTemperatureSelector.Internal, read DeviceTemperatureSelector, write DeviceTemperatureSelector=Internal, read DeviceTemperature
host onFrameTick 41.500000
host heartbeat
> GevReleaseFrame
host getPendingSignal
host tryPopPendingSweepConf
> GevWaitForNextFrame 1000
host onNoFrame
> GevReleaseFrame
> GevWaitForNextFrame 1000
host onNoFrame
> GevReleaseFrame
> GevWaitForNextFrame 1000
> access DeviceTemperatureSelector.Internal, read DeviceTemperatureSelector, read DeviceTemperature
host onFrameTick 41.500000
host heartbeat
> write GainSelector=SensorAll, read Gain, read ExposureTime
host onFrame
> GevReleaseFrame
host getPendingSignal
3 gev_device.run2: done: kPENDING_SIGNAL__SIGTERM
host onNoFrame
5 gev_camera.stopGrabber: exec
> GevAbortTransfer
4 gev_camera.stopGrabber: done
> GevFreeTransfer
4 gev_device.run: done
> GevCloseCamera
)");
  ASSERT_EQ(host_.frames.size(), 1U);
  const mg::cam_frame_info& info = host_.frames[0];
  EXPECT_EQ((std::array{info.width, info.height}), (std::array<std::uint16_t, 2>{640, 480}));
  EXPECT_EQ((std::array{info.exposureUs, info.gainDb}), (std::array{4000.0F, 0.0F}));
  EXPECT_EQ(info.format, 1U);
  EXPECT_EQ(host_.picture.size(), std::size_t{640} * 480);
}

// Catches a signal that ends with another result, an unknown one that counts, and a first frame that is
// handed over.
TEST_F(acquisition, ends_on_a_signal) {
  for (const auto& [signal, name] : std::map<std::int32_t, std::string>{
           {mg::kPENDING_SIGNAL__SIGHUP, "SIGHUP"}, {mg::kPENDING_SIGNAL__SIGTERM, "SIGTERM"}}) {
    host_.signals = {3, signal};
    EXPECT_EQ(runDevice(host_, configuration()), signal);
    EXPECT_EQ(seenWith({"Pending", "onFrame\n", "PENDING"}),
              "\nhost getPendingSignal\nhost getPendingSignal\n"
              "3 gev_device.run2: done: kPENDING_SIGNAL__" +
                  name + "\n");
  }
  EXPECT_EQ(host_.frames.size(), 2U);
}

// Catches a time that is not predicted from the frame before, a lag that is not taken off, or is of the wrong
// kind.
TEST_F(acquisition, stamps_frames_with_the_predicted_time) {
  struct {
    const char* timestamps;
    const char* fault;
    std::uint64_t startUs;  // 1: the stamps count from the start of the run
    std::uint64_t first;    // stamp of the first frame handed over
  } const cases[] = {
      {"full", "", 1, 40'000 + 5},
      {"none", "", 1, 40'000 + 5},
      // The first wait brings nothing: one more period is expected.
      {"full", "frame: empty x1", 1, 2 * 40'000 + 5},
      // The lag is exposure plus timestamp, which with the cameras' clock is the time of arrival.
      {"halves", "", 0, 40'000 + 5}};
  for (const auto& c : cases) {
    cameras(std::string("serial=CAM1 sensor=640x480 picture=still timestamps=") + c.timestamps);
    sim::inject(c.fault);
    host_.frames.clear();
    std::uint64_t started = 0;
    std::vector<std::uint64_t> arrived;
    sim::journal([&](const std::string& line) {
      started = line.starts_with("GevStartTransfer") ? sim::clock_us() : started;
    });
    host_.during["heartbeat"] = [&] { arrived.push_back(sim::clock_us()); };
    EXPECT_EQ(run(configuration(), 4), 2);
    ASSERT_EQ(host_.frames.size(), 4U);
    for (std::size_t k = 0; k < 4; ++k) {
      EXPECT_EQ(host_.frames[k].timestampUs, c.startUs * started + c.first + (arrived[k] - arrived[0]))
          << c.timestamps << k;
    }
  }
}

// Catches a failure that leaves the transfer running, tells nothing, or comes out as another result.
TEST_F(acquisition, ends_on_a_failure) {
  const std::string stopped =
      "5 gev_camera.stopGrabber: exec\n4 gev_camera.stopGrabber: done\n4 gev_device.run: done\n";
  struct {
    const char* call;
    std::function<void()> action;
    std::string end;
  } const cases[] = {
      {"onFrame", [] { throw std::runtime_error("disk full"); }, "fail: exception <disk full>\n" + stopped},
      {"onFrameTick", [] { throw Zavik::params_error(); }, "fail: exception <std::exception>\n" + stopped},
      {"heartbeat", [] { throw GenICam::TimeoutException("no answer", "", 0); },
       "fail: exception <TimeoutException: no answer>\n" + stopped},
      {"tryPopPendingSweepConf", [] { throw std::bad_alloc(); },
       "fail: exception <std::bad_alloc>\n" + stopped},
      {"none", [] {}, "done: kPENDING_SIGNAL__SIGTERM\n" + stopped},
  };
  for (const auto& c : cases) {
    host_.during = {{c.call, c.action}};
    EXPECT_EQ(run(configuration(), 2), std::string("none") == c.call ? 2 : 1);
    EXPECT_THAT(logged(), EndsWith("gev_device.run2: " + c.end));
  }
  // At the last onNoFrame, beyond the loop: the transfer is stopped and freed all the same.
  bool ending = false;
  host_.during = {{"getPendingSignal", [&] { ending = true; }},
                  {"onNoFrame", [&] { ending ? throw Zavik::generic_error() : void(); }}};
  EXPECT_EQ(run(configuration(), 0), 1);
  EXPECT_THAT(logged(), EndsWith("4 gev_camera.stopGrabber: done\n1 gev_device.run: fail\n"));
  host_.during["onNoFrame"] = [] { throw std::runtime_error("late"); };
  EXPECT_EQ(run(configuration(), 0), 1);
  EXPECT_THAT(logged(),
              EndsWith("4 gev_camera.stopGrabber: done\n1 gev_device.run: fail: exception <late>\n"));
  host_.during["onNoFrame"] = [] { throw 42; };
  mg::device_like* made = create(configuration());
  EXPECT_THROW(made->run(&host_), int);
  made->destroy();
}

// Catches waits for a silent camera that do not last a second each, and a host that is asked for a signal
// meanwhile.
TEST_F(acquisition, waits_for_a_silent_camera) {
  sim::inject("GevStartTransfer: status -1");
  int waits = 0;
  host_.during["onNoFrame"] = [&] { ++waits == 3 ? throw std::runtime_error("enough") : void(); };
  const std::uint64_t before = sim::clock_us();
  EXPECT_EQ(run(configuration(), 1), 1);
  EXPECT_EQ(sim::clock_us() - before, 3'000'000U);
  EXPECT_EQ(seenWith({"getPendingSignal"}), "\n");
}

// Catches a sweep table that is leaked, shared too often, or kept after its frame.
TEST_F(acquisition, gives_the_host_a_sweep_table_with_one_reference) {
  struct keeper : mg::device_handler_like {
    void heartbeat() override {}
    std::int32_t getPendingSignal() override { return kept == nullptr ? 0 : 2; }
    bool tryPopPendingSweepConf(rw_table_like* table) override {
      table->setInt64(0, 0, 5);
      table->retain();
      kept = table;
      return false;
    }
    rw_table_like* kept = nullptr;
  } handler;
  const table_ptr config = configuration().table();
  mg::device_like* made = gigev2::Driver__CreateDevice(&handler, config.get());
  EXPECT_EQ(made->run(&host_), 2);
  made->destroy();
  std::int64_t value = 0;
  EXPECT_TRUE(handler.kept->getInt64(0, 0, value));
  EXPECT_EQ(value, 5);
  handler.kept->release();  // the last one: the address sanitizer tells of one left or one too few
}

// Catches another text, another number format, and a temperature that is reported though there is none.
TEST_F(acquisition, reports_the_temperature) {
  mg::device_like* made = create(configuration());
  const std::string head =
      R"({"type":"mediagrabber~device","name": "mediagrabber.0~device.0","stat": {"temp": )";
  for (const auto& [set, shown] : std::map<const char*, std::string>{{"41.5", "41.5"},
                                                                     {"36.123456", "36.1235"},
                                                                     {"1234567", "1.23457e+06"},
                                                                     {"-300", ""},
                                                                     {"nan", ""}}) {
    sim::set_feature("CAM1", "DeviceTemperature", set);
    EXPECT_EQ(made->run(&host_), 2);
    seen();
    EXPECT_EQ(stats(*made), shown.empty() ? "no callback" : head + shown + "}}");
    EXPECT_EQ(seen(), "\n");
  }
  made->destroy();
}

// Catches state that statistics and run share without synchronisation (under the thread sanitizer).
TEST_F(acquisition, reports_statistics_while_it_runs) {
  sim::journal(nullptr);
  mg::device_like* made = create(configuration());
  host_.signals.assign(500, mg::kPENDING_SIGNAL__NONE);
  std::thread running([&] { EXPECT_EQ(made->run(&host_), 2); });
  std::string json;
  while (json.find("temp") == std::string::npos) {
    json = stats(*made);
  }
  running.join();
  made->destroy();
}

// Catches a start that is reported wrongly, and an end that logs or forgets a call.
TEST_F(device, library_is_started_and_stopped) {
  EXPECT_EQ(gigev2::Driver__Init(), 1);
  sim::inject("GevApiInitialize: status -1");
  EXPECT_EQ(gigev2::Driver__Init(), 0);
  gigev2::Driver__Fini();
  EXPECT_EQ(seen(), R"(
> GevApiInitialize
4 gev_driver.Driver__Init: done
> GevApiInitialize
1 gev_driver.Driver__Init: fail: GevApiInitialize (answer:0xFFFFFFFF)
> GevApiUninitialize
> _CloseSocketAPI
)");
}

// Catches a process that does not end on what the entry point does not know.
TEST_F(device, creation_lets_no_unknown_exception_out) {
  struct odd_table : forwarding_table {
    using forwarding_table::forwarding_table;
    bool getString(std::uint8_t, std::uint8_t, std::string&) const override { throw 42; }
  };
  const table_ptr rows = configuration().table();
  odd_table table(*rows);
  EXPECT_DEATH(gigev2::Driver__CreateDevice(&host_, &table), "terminate");
}

// Every row absent, of another type, and with what a careless host writes. Catches a crash, undefined
// behaviour (under the sanitizers), and a camera that stays open.
TEST_F(device, survives_every_careless_row) {
  const settings good = configuration().pin(0, 5, 3, 1, 50).set(property::VS_SWEEP_MANUAL_GAMMA, 1.5F);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  std::vector<settings::cell> careless = {
      false, true, nan, inf, -inf, -1.0F, 0.0F, 1e38F, 1e-40F, std::string(), std::string(10'000, '9')};
  for (const std::int64_t number : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1},
                                    std::int64_t{300}, (std::int64_t{1} << 32U) + 1, INT64_MAX}) {
    careless.emplace_back(number);
  }
  host quiet;
  std::map<bool, int> made;
  for (std::uint8_t row = 0; row <= 18; ++row) {
    if (row == static_cast<std::uint8_t>(property::PINx_RESERVED)) {
      continue;
    }
    quiet.signals.assign(2, 0);
    made[runDevice(quiet, settings(good).without(property{row})) != -1]++;
    for (const settings::cell& cell : careless) {
      quiet.signals.assign(2, 0);
      made[runDevice(quiet, settings(good).without(property{row}).set(property{row}, cell)) != -1]++;
      EXPECT_EQ(sim::open_now().cameras, 0) << unsigned{row};
      quiet.signals.assign(2, 0);
      quiet.sweeps = {settings(sweep(1000, 1)).without(property{row}).set(property{row}, cell)};
      if (row >= 9 && row <= 12) {
        EXPECT_GT(runDevice(quiet, good), 0) << unsigned{row};
      }
      seen();
    }
  }
  EXPECT_GT(made[true], 20);
  EXPECT_GT(made[false], 200);
}

}  // namespace
}  // namespace test
