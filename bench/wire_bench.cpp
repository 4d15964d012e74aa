// What adapter and bundle cost over the wire: processor time of a frame in the receiving process against a
// bare Aravis receive loop, the highest rate without loss, the control traffic of frames and sweeps, and the
// creation of a device.
//
// Runs in a network namespace of its own (see bench/wire), with gvcam as the camera: 1280 x 1024, 9000-byte
// packets.
#include <arv.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gevapi.h>
#include <mediagrabber/bundle.h>
#include <mediagrabber/property.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/log2/log_sink.h"
#include "tests/wire/command_recorder.h"

namespace {

namespace mg = Zavik::Support::MediaGrabber;
using mg::property;
using namespace std::chrono_literals;
using clock_type = std::chrono::steady_clock;

constexpr int kPacketBytes = 9000;

/// Processor time by a clock of a process or thread, seconds.
double cpu_of(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double seconds_since(clock_type::time_point start) {
  return std::chrono::duration<double>(clock_type::now() - start).count();
}

double median(std::vector<double> of) {
  const auto middle = of.begin() + static_cast<std::ptrdiff_t>(of.size() / 2);
  std::nth_element(of.begin(), middle, of.end());
  return *middle;
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

/// gvcam, for as long as this lives. `edit` is what sed does to its description.
class emulated_camera {
 public:
  explicit emulated_camera(const std::string& edit = "") {
    std::vector<std::string> words = {GVCAM, "--picture", "still", "--packet-size",
                                      std::to_string(kPacketBytes)};
    if (!edit.empty()) {
      const std::string description = std::string(BINARY_DIR) + "/edited.xml";
      const std::string make = std::string(GVCAM) + " --dump-xml | sed '" + edit + "' > " + description;
      if (std::system(make.c_str()) != 0) {
        std::exit(1);
      }
      words.insert(words.end(), {"--xml", description});
    }
    child_ = spawn(words, "/dev/null");
    std::this_thread::sleep_for(500ms);
  }
  ~emulated_camera() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
  }
  emulated_camera(const emulated_camera&) = delete;
  emulated_camera& operator=(const emulated_camera&) = delete;

 private:
  pid_t child_;
};

/// Without it a frame asks the camera for nothing.
constexpr const char* kNoTemperature = "s/DeviceTemperature/NoTemperature/g";
/// And frames come as fast as gvcam can send them.
constexpr const char* kNoRateLimit =
    "s/DeviceTemperature/NoTemperature/g; s#<Max>1000</Max><Unit>Hz#<Max>100000</Max><Unit>Hz#";

/// What a receiver made of the frames of one run.
struct reception {
  double frameUs = 0;  // processor time of a frame, microseconds
  double readsUs = 0;  // of which the bundle spent so much on looking up gain and exposure
  double hz = 0;       // whole frames a second
  double lost = 0;     // frames
};

/// How a run is set up.
struct run_setup {
  bool packetSocket = true;
  double hz = 100;
  float exposureUs = 2000;
  std::uint64_t frames = 100;
};

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
  setenv("GIGE_PACKET_SOCKET", setup.packetSocket ? "on" : "off", 1);
  LogSetSink(watch_log, &host);
  MgBundleInit();
  Zavik::Support::rw_table_like* config = Zavik::Support::Table__Create();
  config->setString(row(property::DEV_SERIAL), 0, "GV000001");
  config->setInt64(row(property::MISC_STREAM_PACKET_SIZE_BYTES_MAX), 0, kPacketBytes);
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
  const std::unique_ptr<ArvCamera, unref> camera(arv_camera_new("127.0.0.1", nullptr));
  arv_camera_set_exposure_time(camera.get(), static_cast<double>(setup.exposureUs), nullptr);
  arv_camera_set_frame_rate(camera.get(), setup.hz, nullptr);
  arv_camera_gv_set_packet_size(camera.get(), kPacketBytes, nullptr);
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
  reception got;
  double cpuBefore = 0;
  clock_type::time_point start;
  std::uint64_t whole = 0;
  std::uint64_t lastId = 0;
  arv_camera_start_acquisition(camera.get(), nullptr);
  while (whole <= setup.frames && got.lost <= static_cast<double>(setup.frames)) {
    ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), 1'000'000);
    if (buffer != nullptr && arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
      const std::uint64_t id = arv_buffer_get_frame_id(buffer);
      got.lost += static_cast<double>(id - lastId - 1);
      lastId = id;
      if (whole++ == 0) {
        cpuBefore = cpu_of(CLOCK_PROCESS_CPUTIME_ID);
        start = clock_type::now();
      }
    }
    if (buffer != nullptr) {
      arv_stream_push_buffer(stream.get(), buffer);
    }
  }
  const auto frames = static_cast<double>(setup.frames);
  got.frameUs = (cpu_of(CLOCK_PROCESS_CPUTIME_ID) - cpuBefore) / frames * 1e6;
  got.hz = frames / seconds_since(start);
  arv_camera_stop_acquisition(camera.get(), nullptr);
  return got;
}

/// Debian's own test tool; for so many seconds.
constexpr const char* kCameraTestOutput = BINARY_DIR "/camera_test.txt";
pid_t start_camera_test(const run_setup& setup, int seconds) {
  std::vector<std::string> words = {"arv-camera-test-0.8", "-n", "127.0.0.1", "-a"};
  words.insert(words.end(), {"-f", std::to_string(setup.hz), "-e", std::to_string(setup.exposureUs)});
  words.insert(words.end(), {"-i", std::to_string(kPacketBytes), "--duration", std::to_string(seconds)});
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

/// By its lines for each second but the first, as it loses frames at its start.
reception receive_by_camera_test(const run_setup& setup) {
  waitpid(start_camera_test(setup, 3), nullptr, 0);
  reception got;
  std::ifstream output(kCameraTestOutput);
  int seconds = 0;
  for (std::string line; std::getline(output, line);) {
    double frames = 0;
    double rate = 0;
    double errors = 0;
    char word[20];
    if (std::sscanf(line.c_str(), "%lf %19s - %lf MiB/s - %lf", &frames, word, &rate, &errors) >= 3 &&
        ++seconds > 1) {
      got.hz = frames;
      got.lost += errors;
    }
  }
  return got;
}

// ---- What is measured

using measurements = std::map<std::string, std::vector<double>>;

void tell_medians(benchmark::State& state, const measurements& seen) {
  for (const auto& [name, values] : seen) {
    state.counters[name] = median(values);
  }
}

// Bare loop, bundle and, every third time, Debian's tool in turns, so that each sees the same weather;
// medians, as single runs differ by a tenth. A frame asks the camera for nothing; what the bundle does to
// find that out, its look-ups of gain and exposure, is told apart.
void frame_over_the_wire(benchmark::State& state) {
  const run_setup setup{.packetSocket = state.range(0) != 0};
  const emulated_camera camera(kNoTemperature);
  measurements seen;
  for (auto _ : state) {
    const double bare = receive_by_bare_loop(setup).frameUs;
    const reception ours = receive_by_bundle(setup);
    seen["bare_us"].push_back(bare);
    seen["bundle_us"].push_back(ours.frameUs);
    seen["of_it_reads_us"].push_back(ours.readsUs);
    seen["ratio"].push_back((ours.frameUs - ours.readsUs) / bare);
    seen["ratio_with_reads"].push_back(ours.frameUs / bare);
    if (seen["bare_us"].size() % 3 == 0) {
      seen["arv_camera_test_us"].push_back(camera_test_frame_us(setup));
    }
  }
  tell_medians(state, seen);
  state.SetLabel(setup.packetSocket ? "packet socket" : "UDP socket");
}
BENCHMARK(frame_over_the_wire)->Arg(1)->Arg(0)->Iterations(36)->Unit(benchmark::kSecond);

// The rate is raised step by step; the last is as fast as the camera can. What counts is the highest rate at
// which whole frames came in one of the runs while no more than one was lost: the first may be, on a UDP
// socket.
void highest_rate_over_the_wire(benchmark::State& state) {
  const bool packetSocket = state.range(0) != 0;
  const emulated_camera camera(kNoRateLimit);
  const std::pair<const char*, reception (*)(const run_setup&)> receivers[] = {
      {"bare_hz", receive_by_bare_loop},
      {"bundle_hz", receive_by_bundle},
      {"arv_camera_test_hz", receive_by_camera_test}};
  std::map<std::string, double> highest;
  for (auto _ : state) {
    for (const double hz : {200.0, 400.0, 700.0, 1000.0, 50'000.0}) {
      for (const auto& [name, receive] : receivers) {
        const reception got = receive({packetSocket, hz, 10, 600});
        highest[name] = got.lost <= 1 ? std::max(highest[name], got.hz) : highest[name];
      }
    }
  }
  for (const auto& [name, hz] : highest) {
    state.counters[name] = hz;
  }
  state.SetLabel(packetSocket ? "packet socket" : "UDP socket");
}
BENCHMARK(highest_rate_over_the_wire)->Arg(1)->Arg(0)->Iterations(3)->Unit(benchmark::kSecond);

// Commands for each frame in steady state and for a sweep of gain, exposure, gamma and one IR output, and how
// long that and the creation of a device take.
void control_over_the_wire(benchmark::State& state) {
  const run_setup setup{.frames = 1000};
  const emulated_camera camera;
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
