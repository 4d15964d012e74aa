// What library and bundle cost over the wire: processor time, wake-ups and delay of a frame against a bare
// Aravis receive loop on the same kind of socket, the highest rate without loss for 1 to 8 cameras, the
// control traffic of frames and sweeps, and the creation of a device.
//
// Runs in a network namespace of its own, with gvcam as the cameras, 1280 x 1024: on the loopback interface,
// and in another namespace at the end of a veth cable (see bench/wire, which makes both).
#include <arpa/inet.h>
#include <arv.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gevapi.h>
#include <mediagrabber/bundle.h>
#include <mediagrabber/property.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/trailer_recorder.h"
#include "platform/log2/log_sink.h"
#include "tests/wire/command_recorder.h"

namespace {

namespace mg = Zavik::Support::MediaGrabber;
using mg::property;
using namespace std::chrono_literals;
using clock_type = std::chrono::steady_clock;

/// Processor time by a clock of a process or thread, seconds.
double cpu_of(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// How often this process went to sleep and was woken.
double wake_ups() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_nvcsw);
}

double seconds_since(clock_type::time_point start) {
  return std::chrono::duration<double>(clock_type::now() - start).count();
}

/// The value that so large a share of all does not exceed.
double quantile(std::vector<double> of, double share) {
  if (of.empty()) {
    return 0;
  }
  const auto place = of.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(of.size()));
  std::nth_element(of.begin(), place, of.end());
  return *place;
}

double median(std::vector<double> of) {
  return quantile(std::move(of), 0.5);
}

pid_t spawn(const std::vector<std::string>& words, const std::string& output) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = -1;
  if (posix_spawnp(&child, arguments[0], &files, nullptr, arguments.data(), environ) != 0) {
    std::perror(arguments[0]);
    std::exit(1);
  }
  posix_spawn_file_actions_destroy(&files);
  return child;
}

/// Where cameras are: on this side of the cable or at its other end.
struct network {
  const char* name;
  const char* address;  // without the last number
  int first;            // of the last numbers, one for each camera

  std::string camera(int number) const { return address + std::to_string(first + number); }
};
constexpr network kNetworks[] = {{"loopback", "127.0.0.", 1}, {"veth", "10.1.0.", 2}};

/// Megabits a second, as cameras have them that send 100 frames of 1280 x 1024 a second. Without a limit the
/// packets would come faster than any network carries them.
constexpr const char* kLinkSpeed = "5000";
constexpr const char* kNoLinkLimit = "0";

/// gvcam with so many cameras, for as long as this lives. `edit` is what sed does to its description.
class emulated_cameras {
 public:
  explicit emulated_cameras(const std::string& edit = "", const network& where = kNetworks[0],
                            int cameras = 1, const char* linkSpeed = kLinkSpeed) {
    std::vector<std::string> words = {GVCAM,          "--picture", "still",    "--on-close", "reset",
                                      "--link-speed", linkSpeed,   "--serial", "GV000001"};
    std::string addresses = where.camera(0);
    for (int camera = 1; camera < cameras; ++camera) {
      words.back() += ",GV00000" + std::to_string(camera + 1);
      addresses += "," + where.camera(camera);
    }
    words.insert(words.end(), {"--address", addresses, "--interface", "far"});
    if (where.first == kNetworks[0].first) {
      words.back() = "lo";
    } else {
      words.insert(words.begin(), {"nsenter", "--net", "--target", getenv("FAR_NETWORK")});
    }
    if (!edit.empty()) {
      const std::string description = std::string(BINARY_DIR) + "/edited.xml";
      const std::string make = std::string(GVCAM) + " --dump-xml | sed '" + edit + "' > " + description;
      if (std::system(make.c_str()) != 0) {
        std::exit(1);
      }
      words.insert(words.end(), {"--xml", description});
    }
    setenv("GIGE_ADDRESSES", addresses.c_str(), 1);
    child_ = spawn(words, "/dev/null");
    std::this_thread::sleep_for(500ms);
  }
  ~emulated_cameras() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
  }
  emulated_cameras(const emulated_cameras&) = delete;
  emulated_cameras& operator=(const emulated_cameras&) = delete;

 private:
  pid_t child_;
};

/// Without it a frame asks the camera for nothing.
constexpr const char* kNoTemperature = "s/DeviceTemperature/NoTemperature/g";
/// And frames come as fast as gvcam can send them.
constexpr const char* kNoRateLimit =
    "s/DeviceTemperature/NoTemperature/g; s#<Max>1000</Max><Unit>Hz#<Max>100000</Max><Unit>Hz#";

/// What a receiver made of the frames of one run. Delays are from the arrival of a frame's last packet to its
/// delivery.
struct reception {
  double frameUs = 0;            // processor time of a frame, microseconds
  double readsUs = 0;            // of which the bundle spent so much on looking up gain and exposure
  double wakeUps = 0;            // of the process, a frame
  std::vector<double> delaysUs;  // one for each frame
  double hz = 0;                 // whole frames a second
  double lost = 0;               // frames
};

/// How a run is set up.
struct run_setup {
  network where = kNetworks[0];
  bool packetSocket = true;
  int packetBytes = 9000;
  double hz = 100;
  float exposureUs = 2000;
  std::uint64_t frames = 100;
  int camera = 0;  // which of the network's
};

/// Counts the whole frames of a run, and measures from the first one on.
class frame_meter {
 public:
  explicit frame_meter(const run_setup& setup) : frames_(static_cast<double>(setup.frames)) {}

  bool wants_more() const { return whole_ <= frames_ && got_.lost <= frames_; }
  void count(std::uint64_t id) {
    got_.lost += static_cast<double>(id - lastId_ - 1);
    lastId_ = id;
    delivered_[id] = cpu_of(CLOCK_REALTIME);
    if (whole_++ == 0) {
      cpuBefore_ = cpu_of(CLOCK_PROCESS_CPUTIME_ID);
      wakesBefore_ = wake_ups();
      start_ = clock_type::now();
    }
  }
  /// `arrivals` of last packets, by the wall clock.
  reception result(const std::map<std::uint64_t, double>& arrivals) {
    got_.hz = frames_ / seconds_since(start_);
    got_.frameUs = (cpu_of(CLOCK_PROCESS_CPUTIME_ID) - cpuBefore_) / frames_ * 1e6;
    got_.wakeUps = (wake_ups() - wakesBefore_) / frames_;
    for (const auto& [id, when] : delivered_) {
      if (const auto arrival = arrivals.find(id); arrival != arrivals.end() && id > kLearning) {
        got_.delaysUs.push_back((when - arrival->second) * 1e6);
      }
    }
    return got_;
  }

 private:
  static constexpr std::uint64_t kLearning = 10;  // frames until a receiver knows the stream

  const double frames_;
  double whole_ = 0;
  std::uint64_t lastId_ = 0;
  std::map<std::uint64_t, double> delivered_;
  double cpuBefore_ = 0;
  double wakesBefore_ = 0;
  clock_type::time_point start_;
  reception got_;
};

// ---- The camera library

void write_feature(GEV_CAMERA_HANDLE camera, const char* name, float value) {
  GevSetFeatureValue(camera, name, sizeof value, &value);
}

/// As the bare loop: receive, hand the buffer back. Between GevApiInitialize and GevApiUninitialize.
reception receive_by_open_library(const run_setup& setup) {
  const std::string serial = "GV00000" + std::to_string(setup.camera + 1);
  std::vector<GEV_DEVICE_INTERFACE> found(16);
  int count = 0;
  GevGetCameraList(found.data(), static_cast<int>(found.size()), &count);
  GEV_CAMERA_HANDLE camera = nullptr;
  for (GEV_DEVICE_INTERFACE& each : found) {
    if (each.serial == serial) {
      GevOpenCamera(&each, GevControlMode, &camera);
    }
  }
  GEV_CAMERA_OPTIONS options{};
  GevGetCameraInterfaceOptions(camera, &options);
  options.streamPktSize = static_cast<std::uint32_t>(setup.packetBytes);
  GevSetCameraInterfaceOptions(camera, &options);
  write_feature(camera, "ExposureTime", setup.exposureUs);
  write_feature(camera, "AcquisitionFrameRate", static_cast<float>(setup.hz));
  const trailer_recorder recorder;
  frame_meter meter(setup);
  GEV_STATUS status = GevStartTransfer(camera, UINT32_MAX);
  while (meter.wants_more() && (status == GEVLIB_OK || status == GEVLIB_ERROR_FRAME_INCOMPLETE)) {
    GEV_BUFFER_OBJECT* frame = nullptr;
    status = GevWaitForNextFrame(camera, &frame, 1000);
    if (status == GEVLIB_OK) {
      meter.count(frame->id);
    }
    if (frame != nullptr) {
      GevReleaseFrame(camera, frame);
    }
  }
  const reception got = meter.result(recorder.take());
  GevAbortTransfer(camera);
  GevFreeTransfer(camera);
  GevCloseCamera(&camera);
  return got;
}

void open_library(const run_setup& setup) {
  setenv("GIGE_TRANSPORT", setup.packetSocket ? "ring" : "udp", 1);
  GevApiInitialize();
}

reception receive_by_library(const run_setup& setup) {
  open_library(setup);
  const reception got = receive_by_open_library(setup);
  GevApiUninitialize();
  return got;
}

// ---- The bundle

std::uint8_t row(property id) {
  return static_cast<std::uint8_t>(id);
}

void write_sweep(Zavik::Support::rw_table_like& table, float exposureUs, std::int64_t irLevel) {
  table.setFloat(row(property::VS_SWEEP_MANUAL_EXPOSURE_USEC), 0, exposureUs);
  table.setInt64(row(property::VS_SWEEP_MANUAL_IR_LEVEL), 0, irLevel);
}

enum class measure : std::uint8_t { frames, reads, sweeps };

/// A host that ends the run after so many frames. It measures what a frame takes, or of that the look-ups of
/// gain and exposure, whose clock costs a frame something itself, or gives sweeps and measures them.
class measuring_host final : public mg::device_handler_like, public mg::cam_stream_handler_like {
 public:
  measuring_host(std::uint64_t frames, measure what) : frames_(frames), what_(what) {}

  /// For another run.
  void begin(measure what) {
    what_ = what;
    got.lost = 0;
    seen_ = missed_ = 0;
  }

  void heartbeat() override {
    if (seen_++ == 0) {  // like the bare loop: from the first frame on
      cpuBefore_ = cpu_of(CLOCK_PROCESS_CPUTIME_ID);
      start_ = clock_type::now();
    }
    if (what_ == measure::reads) {
      readsStart_ = cpu_of(CLOCK_THREAD_CPUTIME_ID);
    }
  }
  void onFrame(const mg::cam_frame_info*, const std::uint8_t* data, std::uint32_t byteCount) override {
    if (what_ == measure::reads) {
      readsUs_.push_back((cpu_of(CLOCK_THREAD_CPUTIME_ID) - readsStart_) * 1e6);
    }
    benchmark::DoNotOptimize(data[byteCount - 1]);
  }
  std::int32_t getPendingSignal() override {
    if (seen_ <= frames_) {
      return mg::kPENDING_SIGNAL__NONE;
    }
    const auto frames = static_cast<double>(frames_);
    got.frameUs = (cpu_of(CLOCK_PROCESS_CPUTIME_ID) - cpuBefore_) / frames * 1e6;
    got.readsUs = readsUs_.empty() ? 0 : median(readsUs_);
    got.hz = frames / seconds_since(start_);
    return mg::kPENDING_SIGNAL__SIGTERM;
  }
  bool tryPopPendingSweepConf(Zavik::Support::rw_table_like* table) override {
    if (what_ != measure::sweeps || seen_ % kFramesBetweenSweeps != 0) {
      return false;
    }
    const bool other = seen_ % (2 * kFramesBetweenSweeps) == 0;
    write_sweep(*table, other ? 2500 : 3000, 1);
    table->setFloat(row(property::VS_SWEEP_MANUAL_GAIN_DB), 0, other ? 3.0F : 6.0F);
    table->setFloat(row(property::VS_SWEEP_MANUAL_GAMMA), 0, other ? 1.2F : 1.5F);
    commands_.count();
    start_ = clock_type::now();
    return true;
  }
  void onFrameTick(float) override {}
  void onNoFrame() override {
    if (++missed_ > frames_) {
      throw std::runtime_error("no whole frames");
    }
  }

  void log(const log_line& line) {
    double whole = 0;
    double broken = 0;
    double missing = 0;
    if (std::strcmp(line.text, "done: tryPopPendingSweepConf") == 0) {
      sweepMs.push_back(seconds_since(start_) * 1e3);
      sweepCommands.push_back(commands_.count());
    } else if (std::sscanf(line.text, "stat: transfer of GV000001 (whole:%lf, incomplete:%lf, missing:%lf",
                           &whole, &broken, &missing) == 3) {
      got.lost += broken + missing;
    } else if (line.level == 1) {
      std::fprintf(stderr, "%s: %s\n", line.function, line.text);
    }
  }

  reception got;
  std::vector<double> sweepMs;
  std::vector<double> sweepCommands;

 private:
  static constexpr std::uint64_t kFramesBetweenSweeps = 150;

  const std::uint64_t frames_;
  measure what_;
  std::uint64_t seen_ = 0;
  std::uint64_t missed_ = 0;
  double cpuBefore_ = 0;
  double readsStart_ = 0;
  std::vector<double> readsUs_;
  clock_type::time_point start_;
  wire_test::command_recorder commands_;
};

void watch_log(void* host, const log_line* line) {
  static_cast<measuring_host*>(host)->log(*line);
}

mg::device_like* create_device(measuring_host& host, const run_setup& setup) {
  setenv("GIGE_TRANSPORT", setup.packetSocket ? "ring" : "udp", 1);
  LogSetSink(watch_log, &host);
  MgBundleInit();
  Zavik::Support::rw_table_like* config = Zavik::Support::Table__Create();
  config->setString(row(property::DEV_SERIAL), 0, "GV000001");
  config->setInt64(row(property::MISC_STREAM_PACKET_SIZE_BYTES_MAX), 0, setup.packetBytes);
  config->setFloat(row(property::VS_ACQ_FPS_HZ), 0, static_cast<float>(setup.hz));
  config->setInt64(row(property::VS_ACQ_FRAME_FORMAT), 0, 1);
  config->setBool(row(property::VS_ACQ_ROTATE180), 0, false);
  config->setInt64(row(property::VS_ACQ_SENSOR_X), 0, 0);
  config->setInt64(row(property::VS_ACQ_SENSOR_Y), 0, 0);
  config->setInt64(row(property::VS_ACQ_SENSOR_W), 0, 1280);
  config->setInt64(row(property::VS_ACQ_SENSOR_H), 0, 1024);
  config->setInt64(row(property::PIN_COUNT), 0, 1);
  config->setInt64(row(property::PINx_REF), 0, 5);
  config->setInt64(row(property::PINx_SOURCE), 0, 2);
  config->setInt64(row(property::PINx_INVERTER), 0, 1);
  write_sweep(*config, setup.exposureUs, 0);
  mg::device_like* device = MgBundleCreateDevice(&host, config);
  config->release();
  if (device == nullptr) {
    std::fputs("no device\n", stderr);
    std::exit(1);
  }
  return device;
}

void destroy_device(mg::device_like* device) {
  device->destroy();
  MgBundleFini();
  LogSetSink(nullptr, nullptr);
}

reception receive_by_bundle(const run_setup& setup) {
  measuring_host host(setup.frames, measure::reads);
  mg::device_like* device = create_device(host, setup);
  for (const measure what : {measure::reads, measure::frames}) {  // the first run warms up, too
    host.begin(what);
    device->run(&host);
  }
  destroy_device(device);
  return host.got;
}

// ---- Those to compare with

struct unref {
  void operator()(void* object) const { g_object_unref(object); }
};

/// A bare loop over Aravis: receive, hand the buffer back.
reception receive_by_bare_loop(const run_setup& setup) {
  const std::unique_ptr<ArvCamera, unref> camera(
      arv_camera_new(setup.where.camera(setup.camera).c_str(), nullptr));
  arv_camera_set_exposure_time(camera.get(), static_cast<double>(setup.exposureUs), nullptr);
  arv_camera_set_frame_rate(camera.get(), setup.hz, nullptr);
  arv_camera_gv_set_packet_size(camera.get(), setup.packetBytes, nullptr);
  arv_camera_gv_set_packet_size_adjustment(camera.get(), ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
  arv_camera_gv_set_stream_options(camera.get(), setup.packetSocket
                                                     ? ARV_GV_STREAM_OPTION_NONE
                                                     : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
  const std::unique_ptr<ArvStream, unref> stream(
      arv_camera_create_stream(camera.get(), nullptr, nullptr, nullptr));
  g_object_set(stream.get(), "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
               4 << 20, nullptr);
  const auto payload = static_cast<std::size_t>(arv_camera_get_payload(camera.get(), nullptr));
  for (int i = 0; i < 4; ++i) {  // as many as the bundle has
    ArvBuffer* buffer = arv_buffer_new_allocate(payload);
    std::size_t size = 0;
    std::memset(const_cast<void*>(arv_buffer_get_data(buffer, &size)), 0, payload);
    arv_stream_push_buffer(stream.get(), buffer);
  }
  const trailer_recorder recorder;
  frame_meter meter(setup);
  arv_camera_start_acquisition(camera.get(), nullptr);
  while (meter.wants_more()) {
    ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), 1'000'000);
    if (buffer == nullptr) {
      break;
    }
    if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
      meter.count(arv_buffer_get_frame_id(buffer));
    }
    arv_stream_push_buffer(stream.get(), buffer);
  }
  const reception got = meter.result(recorder.take());
  arv_camera_stop_acquisition(camera.get(), nullptr);
  return got;
}

/// To which the camera streams from now on.
int open_stream_socket(ArvCamera& camera, int packetBytes) {
  const int receiver = socket(AF_INET, SOCK_DGRAM, 0);
  const int buffer = 32 << 20;
  setsockopt(receiver, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
  const timeval patience{1, 0};
  setsockopt(receiver, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  ArvDevice* device = arv_camera_get_device(&camera);
  GSocketAddress* own = arv_gv_device_get_interface_address(ARV_GV_DEVICE(device));
  sockaddr_in address{};
  g_socket_address_to_native(own, &address, sizeof address, nullptr);
  address.sin_port = 0;
  bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  socklen_t size = sizeof address;
  getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &size);
  arv_device_write_register(device, 0x0D18, ntohl(address.sin_addr.s_addr), nullptr);  // GevSCDA
  arv_device_write_register(device, 0x0D04, static_cast<std::uint32_t>(packetBytes),
                            nullptr);                                           // GevSCPSPacketSize
  arv_device_write_register(device, 0x0D00, ntohs(address.sin_port), nullptr);  // GevSCPHostPort
  return receiver;
}

/// What the system itself takes to hand over a frame on a UDP socket: the camera's packets are read to where
/// they belong in one look a frame, nothing is checked, nothing is asked for again. No receiver on such a
/// socket costs less.
reception receive_by_bare_socket(const run_setup& setup) {
  constexpr std::size_t head = 8;
  constexpr std::size_t payload = 1280 * 1024;
  const std::size_t body = static_cast<std::size_t>(setup.packetBytes) - 28 - head;
  const std::size_t packets = (payload + body - 1) / body + 2;  // with leader and trailer
  std::vector<std::uint8_t> frame(packets * body);
  std::vector<std::array<std::uint8_t, head>> heads(packets);
  std::vector<std::array<iovec, 2>> pieces(packets);
  std::vector<mmsghdr> messages(packets);
  for (std::size_t at = 0; at < packets; ++at) {
    pieces[at] = {{{heads[at].data(), head}, {frame.data() + at * body, body}}};
    messages[at].msg_hdr.msg_iov = pieces[at].data();
    messages[at].msg_hdr.msg_iovlen = pieces[at].size();
  }
  const std::unique_ptr<ArvCamera, unref> camera(
      arv_camera_new(setup.where.camera(setup.camera).c_str(), nullptr));
  arv_camera_set_exposure_time(camera.get(), static_cast<double>(setup.exposureUs), nullptr);
  arv_camera_set_frame_rate(camera.get(), setup.hz, nullptr);
  const int receiver = open_stream_socket(*camera, setup.packetBytes);
  frame_meter meter(setup);
  arv_camera_start_acquisition(camera.get(), nullptr);
  pollfd first{receiver, POLLIN, 0};
  poll(&first, 1, 1000);
  const auto period = std::chrono::nanoseconds(static_cast<std::int64_t>(1e9 / setup.hz));
  auto end = clock_type::now() + period * 2 / 5;  // of the first frame, by when its last packet is there
  for (std::uint64_t id = 1; meter.wants_more(); ++id, end += period) {
    std::this_thread::sleep_until(end);
    for (std::size_t got = 0; got < packets;) {
      const int more =
          recvmmsg(receiver, &messages[got], static_cast<unsigned>(packets - got), MSG_WAITFORONE, nullptr);
      if (more < 0) {
        std::perror("bare socket");
        std::exit(1);
      }
      got += static_cast<std::size_t>(more);
    }
    meter.count(id);
  }
  const reception got = meter.result({});
  arv_camera_stop_acquisition(camera.get(), nullptr);
  close(receiver);
  return got;
}

/// Debian's own test tool; for so many seconds.
constexpr const char* kCameraTestOutput = BINARY_DIR "/camera_test.txt";
pid_t start_camera_test(const run_setup& setup, int seconds) {
  std::vector<std::string> words = {"arv-camera-test-0.8", "-n", setup.where.camera(0), "-a"};
  words.insert(words.end(), {"-f", std::to_string(setup.hz), "-e", std::to_string(setup.exposureUs)});
  words.insert(words.end(), {"-i", std::to_string(setup.packetBytes), "--duration", std::to_string(seconds)});
  if (!setup.packetSocket) {
    words.emplace_back("--no-packet-socket");
  }
  return spawn(words, kCameraTestOutput);
}

/// Without its start, which takes more than its frames.
double camera_test_frame_us(const run_setup& setup) {
  const pid_t tool = start_camera_test(setup, 4);
  const auto cpu_after = [tool](std::chrono::milliseconds pause) {
    std::this_thread::sleep_for(pause);
    clockid_t clock = 0;
    clock_getcpuclockid(tool, &clock);
    return cpu_of(clock);
  };
  const double before = cpu_after(1500ms);
  const double spent = cpu_after(2000ms) - before;
  waitpid(tool, nullptr, 0);
  return spent / (2 * setup.hz) * 1e6;
}

// ---- What is measured

using measurements = std::map<std::string, std::vector<double>>;

void tell_medians(benchmark::State& state, const measurements& seen) {
  for (const auto& [name, values] : seen) {
    state.counters[name] = median(values);
  }
}

constexpr const char* socket_name(bool packetSocket) {
  return packetSocket ? "packet ring" : "UDP";
}

// Bare loop, library, bundle and, every third time, Debian's tool in turns, so that each sees the same
// weather; medians, as single runs differ by a tenth. A frame asks the camera for nothing; what the bundle
// does to find that out, its look-ups of gain and exposure, is told apart and not in the ratio.
void frame_over_the_wire(benchmark::State& state) {
  const run_setup setup{.where = kNetworks[state.range(0)],
                        .packetSocket = state.range(2) != 0,
                        .packetBytes = static_cast<int>(state.range(1))};
  const emulated_cameras camera(kNoTemperature, setup.where);
  measurements seen;
  std::vector<double> bareDelays;
  std::vector<double> libraryDelays;
  const auto add = [](std::vector<double>& to, const std::vector<double>& more) {
    to.insert(to.end(), more.begin(), more.end());
  };
  for (auto _ : state) {
    const reception bare = receive_by_bare_loop(setup);
    if (!setup.packetSocket) {
      seen["bare_socket_us"].push_back(receive_by_bare_socket(setup).frameUs);
    }
    const reception library = receive_by_library(setup);
    const reception bundle = receive_by_bundle(setup);
    seen["bare_us"].push_back(bare.frameUs);
    seen["bare_wakes"].push_back(bare.wakeUps);
    add(bareDelays, bare.delaysUs);
    seen["library_us"].push_back(library.frameUs);
    seen["library_wakes"].push_back(library.wakeUps);
    add(libraryDelays, library.delaysUs);
    seen["bundle_us"].push_back(bundle.frameUs);
    seen["of_it_reads_us"].push_back(bundle.readsUs);
    seen["ratio"].push_back((bundle.frameUs - bundle.readsUs) / bare.frameUs);
    if (seen["bare_us"].size() % 3 == 1) {
      seen["arv_camera_test_us"].push_back(camera_test_frame_us(setup));
    }
  }
  tell_medians(state, seen);
  for (const auto& [name, delays] : {std::pair("bare", &bareDelays), std::pair("library", &libraryDelays)}) {
    state.counters[std::string(name) + "_delay_us"] = median(*delays);
    state.counters[std::string(name) + "_late_us"] = quantile(*delays, 0.99);
  }
  state.SetLabel(std::string(setup.where.name) + ", " + socket_name(setup.packetSocket));
}
BENCHMARK(frame_over_the_wire)
    ->ArgNames({"network", "packet", "ring"})
    ->ArgsProduct({{0, 1}, {9000, 1500}, {0, 1}})
    ->Iterations(3)
    ->Unit(benchmark::kSecond);

/// So many cameras at once, a thread each: the rate of the slowest, and the frames that all have lost.
reception receive_by_all(reception (*receive)(const run_setup&), const run_setup& setup, int cameras) {
  std::vector<reception> each(static_cast<std::size_t>(cameras));
  std::vector<std::thread> threads;
  for (int camera = 0; camera < cameras; ++camera) {
    threads.emplace_back([&, camera] {
      run_setup own = setup;
      own.camera = camera;
      each[static_cast<std::size_t>(camera)] = receive(own);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  reception all = each.front();
  for (std::size_t camera = 1; camera < each.size(); ++camera) {
    all.hz = std::min(all.hz, each[camera].hz);
    all.lost += each[camera].lost;
  }
  return all;
}

constexpr double kRateSeconds = 0.4;

// The rate is raised step by step; the last is as fast as the cameras can. What counts is the highest rate at
// which whole frames came from each of them in one of the runs while no more than one was lost: the first may
// be, on a UDP socket of the bare loop.
void highest_rate_over_the_wire(benchmark::State& state) {
  const bool packetSocket = state.range(0) != 0;
  const auto cameras = static_cast<int>(state.range(1));
  const emulated_cameras camera(kNoRateLimit, kNetworks[0], cameras, kNoLinkLimit);
  const std::pair<const char*, reception (*)(const run_setup&)> receivers[] = {
      {"bare_hz", receive_by_bare_loop}, {"library_hz", receive_by_open_library}};
  std::map<std::string, double> highest;
  open_library({.packetSocket = packetSocket});
  for (auto _ : state) {
    for (const double hz : {400.0, 600.0, 800.0, 1000.0, 1300.0, 1700.0, 2200.0, 50'000.0}) {
      for (const auto& [name, receive] : receivers) {
        const auto frames = static_cast<std::uint64_t>(std::min(hz, 2000.0) / cameras * kRateSeconds);
        const run_setup setup{
            .packetSocket = packetSocket, .hz = hz / cameras, .exposureUs = 10, .frames = frames};
        const reception got = receive_by_all(receive, setup, cameras);
        highest[name] = got.lost <= 1 ? std::max(highest[name], got.hz) : highest[name];
      }
    }
  }
  GevApiUninitialize();
  for (const auto& [name, hz] : highest) {
    state.counters[name] = hz;
  }
  state.SetLabel(socket_name(packetSocket));
}
BENCHMARK(highest_rate_over_the_wire)
    ->ArgNames({"ring", "cameras"})
    ->ArgsProduct({{0, 1}, {1, 2, 4, 8}})
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

// Commands for each frame in steady state and for a sweep of gain, exposure, gamma and one IR output, and how
// long that and the creation of a device take.
void control_over_the_wire(benchmark::State& state) {
  const run_setup setup{.frames = 1000};
  const emulated_cameras camera;
  const wire_test::command_recorder commands;
  measurements seen;
  for (auto _ : state) {
    measuring_host steady(setup.frames, measure::frames);
    const auto start = clock_type::now();
    mg::device_like* device = create_device(steady, setup);
    seen["creation_ms"].push_back(seconds_since(start) * 1e3);
    commands.count();
    device->run(&steady);
    seen["commands_a_frame"].push_back(commands.count() / static_cast<double>(setup.frames));
    destroy_device(device);
    measuring_host sweeping(setup.frames, measure::sweeps);
    device = create_device(sweeping, setup);
    device->run(&sweeping);
    destroy_device(device);
    // The first switches the look-up table on, too.
    seen["first_sweep_commands"].push_back(sweeping.sweepCommands.front());
    seen["sweep_commands"].push_back(median(sweeping.sweepCommands));
    seen["sweep_ms"].push_back(median(sweeping.sweepMs));
  }
  tell_medians(state, seen);
}
BENCHMARK(control_over_the_wire)->Iterations(3)->Unit(benchmark::kSecond);

}  // namespace
