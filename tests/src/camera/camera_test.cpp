// The connection to a camera: found by serial number, opened, configured, and closed on every way out.
#include "src/camera/gev_camera.h"
#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

using config_view = Zavik::Support::table<property, table_like>;

class connection : public bundle_test {
 protected:
  static std::shared_ptr<gigev2::camera_api> connect(const settings& rows) {
    return gigev2::CameraApi__Create(rows.table().get());
  }
};

// Catches a comparison that trims, folds or cuts, a camera too many, and a line that is missing or said
// twice.
TEST_F(connection, finds_the_camera_by_its_serial_number) {
  std::string many;
  for (int i = 1; i <= 9; ++i) {
    many += "serial=N" + std::to_string(i) + " sensor=640x480\n";
  }
  struct {
    std::string cameras;
    settings::cell serial;
    std::string opened;  // which record; empty: none
  } const cases[] = {{"serial=abc sensor=640x480; serial=ABC sensor=640x480", "ABC", "ABC"},
                     {"serial=TWIN sensor=640x480 user=a; serial=TWIN sensor=640x480 user=b", "TWIN", "TWIN"},
                     {"serial=ABC sensor=640x480", "ABC ", ""},
                     {"serial=ABC sensor=640x480", "AB", ""},
                     {"serial=ABC sensor=640x480", std::string("ABC\0", 4), ""},
                     {"serial=ABC sensor=640x480", "", ""},
                     {"serial=ABC sensor=640x480; serial= sensor=640x480", "", " "},
                     {"serial=ABC sensor=640x480", std::string(10'000, 'A'), ""},
                     {many, "N8", "N8"},
                     {many, "N9", ""},
                     {"", "ABC", ""}};
  for (const auto& c : cases) {
    cameras(c.cameras);
    seen();
    const auto find = [&] { connect(configuration().set(property::DEV_SERIAL, c.serial)); };
    EXPECT_EQ(raised(find), c.opened.empty() ? "not_found_error" : "none") << c.cameras;
    const std::string fail =
        "5 gev_camera.CameraApi__Create: exec\n> GevGetCameraList 8\n"
        "1 gev_camera.CameraApi__Create: fail: not_found_error\n";
    const std::string opened = "> GevOpenCamera " + (c.opened == " " ? "" : c.opened) + " mode:2\n";
    EXPECT_THAT(seen(), HasSubstr(c.opened.empty() ? fail : opened));
  }
}

// Catches an order of construction other than box, open, node map, controls, lines; and a camera that stays
// open.
TEST_F(connection, builds_the_controls_in_their_order) {
  std::shared_ptr<gigev2::camera_api> camera = connect(configuration().pin(0, 5, 2, 1));
  EXPECT_EQ(seenWith({"Create: ", "> Gev", "_api: exec", "box", "camera_api", "read lutMode", "LineSource"}),
            R"(
5 gev_camera.CameraApi__Create: exec
> GevGetCameraList 8
4 gev_irbox.gev_irbox: exec
4 gev_irbox.gev_irbox: done
4 gev_camera.camera_api: exec
> GevOpenCamera CAM1 mode:2
> GevGetFeatureNodeMap
5 gev_exposure.exposure_api: exec
5 gev_fps.fps_api: exec
5 gev_gain.gain_api: exec
> read lutMode, read lutMode
5 gev_sensor.sensor_api: exec
4 gev_irbox.setup: exec
> write outputLineSource=Off
4 gev_irbox.setup: done
4 gev_camera.camera_api: done
4 gev_camera.CameraApi__Create: done
)");
  EXPECT_EQ(camera->getDevParams(), camera->nodeMap);
  EXPECT_EQ(camera.use_count(), 1);
  sim::inject("GevCloseCamera: status -1");
  camera.reset();
  EXPECT_EQ(seen(), "\n> GevCloseCamera\n");  // a refusal is ignored
  sim::reset();
}

// Catches a failure that is turned into another exception, logged otherwise, or leaves the camera open.
TEST_F(connection, fails_with_the_right_exception_and_closes_the_camera) {
  const std::string create = "1 gev_camera.CameraApi__Create: fail";
  struct {
    settings rows;
    const char* fault;
    const char* exception;
    std::string end;  // of the log
  } const cases[] = {
      {configuration().without(property::DEV_SERIAL), "", "params_error",
       create + ": property_table_t::getString (property:DEV_SERIAL)\n"},
      {configuration(), "GevOpenCamera: status -7", "internal_error",
       "1 gev_camera.camera_api: fail: GevOpenCamera\n" + create + "\n"},
      {configuration(), "GevOpenCamera: null", "internal_error",
       "1 gev_camera.camera_api: fail: GevOpenCamera\n" + create + "\n"},
      {configuration(), "GevGetFeatureNodeMap: null", "internal_error",
       "1 gev_camera.camera_api: fail: GevGetFeatureNodeMap\n" + create + "\n"},
      {configuration(), "GevGetFeatureNodeMap: empty", "internal_error", "4 gev_camera.camera_api: exec\n"},
      {configuration().without(property::VS_ACQ_FPS_HZ), "", "params_error",
       "1 gev_fps.fps_api: fail: VS_ACQ_FPS_HZ\n" + create + "\n"},
      {configuration(), "write Width: memory", "internal_error", create + ": exception <std::bad_alloc>\n"},
      {configuration().without(property::VS_SWEEP_MANUAL_IR_LEVEL), "", "internal_error",
       "1 gev_irbox.setup: fail: table::getInt64 (row:VS_SWEEP_MANUAL_IR_LEVEL)\n" + create + "\n"},
      {configuration().pin(0, 1, 1, 1), "", "internal_error",
       "1 gev_irbox.gev_irbox: fail: unsupported (pin-source:1, col:0)\n" + create + "\n"},
  };
  for (const auto& c : cases) {
    sim::clear_faults();
    sim::inject(c.fault);
    EXPECT_EQ(raised([&] { connect(c.rows); }), c.exception);
    EXPECT_EQ(sim::open_now().cameras, 0);
    EXPECT_THAT(logged(), EndsWith("\n" + c.end));
  }
  EXPECT_EQ(raised([] { gigev2::CameraApi__Create(nullptr); }), "unsupported_error");
  EXPECT_EQ(seen(), "\n5 gev_camera.CameraApi__Create: exec\n");
}

// A configuration that keeps, for every reference taken, whether the camera was open.
class watched_table final : public forwarding_table {
 public:
  using forwarding_table::forwarding_table;
  void retain() override { openAtRetain.push_back(sim::open_now().cameras > 0); }

  std::vector<bool> openAtRetain;
};

// Catches a control that takes its reference while the arguments before it are still being worked out.
TEST_F(connection, takes_references_in_the_order_of_its_steps) {
  const table_ptr rows = configuration().table();
  watched_table table(*rows);
  gigev2::CameraApi__Create(&table);
  // The serial number and the IR box; then five controls and the IR lines.
  EXPECT_EQ(table.openAtRetain, (std::vector<bool>{false, false, true, true, true, true, true, true}));
}

class connected : public connection {
 protected:
  connected() : camera(connect(configuration())) { seen(); }

  void setupStream(const settings& rows) { camera->setupStream(config_view(rows.table().get())); }
  void setupPixelFormat(const settings& rows) { camera->setupPixelFormat(config_view(rows.table().get())); }

  std::shared_ptr<gigev2::camera_api> camera;
};

// Catches a packet size that is limited elsewhere or cut otherwise, and options that are set wrongly or
// overwritten.
TEST_F(connected, sets_the_stream_options) {
  const std::map<std::int64_t, const char*> sizes = {{8192, "8192"}, {9180, "9180"},
                                                     {9181, "1500"}, {std::int64_t{1} << 40U, "1500"},
                                                     {0, "0"},       {-1, "4294967295"}};
  for (const auto& [configured, written] : sizes) {
    setupStream(settings().set(property::MISC_STREAM_PACKET_SIZE_BYTES_MAX, configured));
    const std::string all = seen();
    EXPECT_THAT(all, StartsWith("\n> GevGetCameraInterfaceOptions\n> GevSetCameraInterfaceOptions "));
    for (const std::string option :
         {"heartbeat_timeout_ms:5000,", "streamPktDelay:10,", "streamNumFramesBuffered:4,",
          "streamMemoryLimitMax:67108864,", "streamFrame_timeout_ms:1001,"}) {
      EXPECT_THAT(all, HasSubstr(option));
    }
    EXPECT_THAT(all, HasSubstr(std::string("streamPktSize:") + written + ","));
  }
  sim::inject("GevSetCameraInterfaceOptions: status -5; GevGetCameraInterfaceOptions: status -1");
  setupStream(settings());
  EXPECT_EQ(logged(), R"(
4 gev_camera.setupStream: fail: getInt64 (param:MISC_STREAM_PACKET_SIZE_BYTES_MAX)
2 gev_camera.setupStream: Can't configure packet options (packet size 0)
)");
}

// Catches a format that is accepted though it is not 8-bit monochrome, or not though it is.
TEST_F(connected, sets_the_pixel_format) {
  for (const std::int64_t format : {std::int64_t{1}, (std::int64_t{1} << 32U) + 1}) {
    setupPixelFormat(settings().set(property::VS_ACQ_FRAME_FORMAT, format));
    EXPECT_EQ(seen(), "\n> GevSetFeatureValue PixelFormat 17301505\n");
  }
  for (const auto& [format, text] : std::map<std::int64_t, std::string>{{0, "0"}, {2, "2"}, {-1, "-1"}}) {
    EXPECT_EQ(
        raised([&, code = format] { setupPixelFormat(settings().set(property::VS_ACQ_FRAME_FORMAT, code)); }),
        "unsupported_error");
    EXPECT_EQ(seen(), "\n1 gev_camera.setupPixelFormat: fail: unsupported (frame-format:" + text + ")\n");
  }
  EXPECT_EQ(raised([&] { setupPixelFormat(settings().set(property::VS_ACQ_FRAME_FORMAT, 1.0F)); }),
            "params_error");
  sim::inject("GevSetFeatureValue: status -9");
  EXPECT_EQ(raised([&] { setupPixelFormat(configuration()); }), "internal_error");
  EXPECT_EQ(logged(), R"(
1 gev_camera.setupPixelFormat: fail: table::getInt64 (row:VS_ACQ_FRAME_FORMAT)
1 gev_camera.setupPixelFormat: fail: GevSetFeatureValue (gev-pixel-format:fmtMono8)
)");
}

// Catches a transfer with an end, a state that is guessed, and a refusal that is raised or logged at another
// level.
TEST_F(connected, starts_and_stops_the_transfer) {
  EXPECT_TRUE(camera->startGrabber());
  EXPECT_TRUE(camera->stopGrabber());
  sim::inject("GevStartTransfer: status -1; GevAbortTransfer: status 171 x1");
  EXPECT_FALSE(camera->startGrabber());
  EXPECT_FALSE(camera->stopGrabber());
  GevFreeTransfer(camera->handle.get());
  camera->handle.close();
  EXPECT_FALSE(camera->startGrabber());
  EXPECT_FALSE(camera->stopGrabber());
  EXPECT_EQ(seen(), R"(
5 gev_camera.startGrabber: exec
> GevStartTransfer 4294967295
4 gev_camera.startGrabber: done
5 gev_camera.stopGrabber: exec
> GevAbortTransfer
4 gev_camera.stopGrabber: done
5 gev_camera.startGrabber: exec
> GevStartTransfer 4294967295
1 gev_camera.startGrabber: fail: GevStartTransfer (answer:0xffffffff)
5 gev_camera.stopGrabber: exec
> GevAbortTransfer
2 gev_camera.stopGrabber: fail: GevAbortTransfer (answer:0xab)
> GevFreeTransfer
> GevCloseCamera
5 gev_camera.startGrabber: exec
1 gev_camera.startGrabber: fail: handle:null
5 gev_camera.stopGrabber: exec
1 gev_camera.stopGrabber: fail: handle:null
)");
}

// Catches chunks that are skipped or forced, another order, and a write before all nodes are known.
TEST_F(connected, enables_the_chunks_that_the_camera_has) {
  camera->setupCamChunks();
  EXPECT_EQ(seen(), R"(
> write ChunkModeActive=1, access ChunkSelector.Gain, write ChunkSelector=Gain, access ChunkEnable, write ChunkEnable=1, access ChunkSelector.ExposureTime, write ChunkSelector=ExposureTime, access ChunkEnable, write ChunkEnable=1, access ChunkSelector.Timestamp, write ChunkSelector=Timestamp, access ChunkEnable, write ChunkEnable=1
)");
  sim::alter_feature("CAM1", "ChunkEnable", "access", "RO");
  sim::alter_feature("CAM1", "ChunkSelector.ExposureTime", "access", "NI");
  camera->setupCamChunks();
  EXPECT_EQ(writes(), "ChunkModeActive=1 ChunkSelector=Gain ChunkSelector=Timestamp ");
  for (const char* missing : {"ChunkSelector", "ChunkEnable", "ChunkModeActive"}) {
    sim::alter_feature("CAM1", missing, "kind", "string");
    EXPECT_EQ(raised([&] { camera->setupCamChunks(); }), "unsupported_error");
    EXPECT_EQ(seen(), "\n1 gev_camera.setupCamChunks: fail: CNodeMapRef::_GetNode (name:" +
                          std::string(missing) + ")\n");
  }
}

// Catches a brightness that stays automatic in silence.
TEST_F(connected, switches_automatic_brightness_off) {
  camera->setBrightnessMode();
  sim::alter_feature("CAM1", "autoBrightnessMode", "kind", "boolean");
  EXPECT_EQ(raised([&] { camera->setBrightnessMode(); }), "internal_error");
  EXPECT_EQ(seen(), R"(
> write autoBrightnessMode=Off
2 gev_camera.setBrightnessMode: fail: INodeMap::GetNode (name:autoBrightnessMode)
)");
}

// Catches a selector that is written without need, and a reading that ends a run or is made up.
TEST_F(connected, reads_the_temperature_or_says_that_there_is_none) {
  sim::set_feature("CAM1", "DeviceTemperature", "41.5");
  for (const char* calls :
       {"access DeviceTemperatureSelector.Internal, read DeviceTemperatureSelector, write "
        "DeviceTemperatureSelector=Internal, read DeviceTemperature\n",
        "access DeviceTemperatureSelector.Internal, read DeviceTemperatureSelector, read "
        "DeviceTemperature\n"}) {
    EXPECT_EQ(camera->getSensorTempC(), 41.5F);
    EXPECT_EQ(seen(), std::string("\n> ") + calls);
  }
  for (const char* fault : {"read DeviceTemperature: timeout x1", "read DeviceTemperature: std x1",
                            "read DeviceTemperatureSelector: timeout x1",
                            "access DeviceTemperatureSelector.Internal: memory x1"}) {
    sim::inject(fault);
    EXPECT_EQ(camera->getSensorTempC(), -321.0F) << fault;
  }
  sim::set_feature("CAM1", "DeviceTemperatureSelector", "Mainboard");
  sim::inject("write DeviceTemperatureSelector: access x1");
  EXPECT_EQ(raised([&] { camera->getSensorTempC(); }).substr(0, 16), "AccessException:");
  sim::alter_feature("CAM1", "DeviceTemperature", "kind", "integer");
  EXPECT_EQ(camera->getSensorTempC(), -321.0F);
  sim::alter_feature("CAM1", "DeviceTemperatureSelector.Internal", "access", "NI");
  EXPECT_EQ(camera->getSensorTempC(), -321.0F);
  sim::alter_feature("CAM1", "DeviceTemperatureSelector", "kind", "string");
  EXPECT_EQ(camera->getSensorTempC(), -321.0F);
  EXPECT_EQ(logged(), "\n");
}

}  // namespace
}  // namespace test
