// What adapter and bundle cost over the wire: processor time of a frame in the receiving process against a
// bare Aravis receive loop, the control traffic of frames and sweeps, and the creation of a device.
//
// Runs in a network namespace of its own (see bench/wire), with gvcam as the camera: 1280 x 1024, 9000-byte
// packets.
#include <arpa/inet.h>
#include <arv.h>
#include <benchmark/benchmark.h>
#include <gevapi.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <mediagrabber/bundle.h>
#include <mediagrabber/property.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/log2/log_sink.h"

extern char** environ;

namespace {

namespace mg = Zavik::Support::MediaGrabber;
using mg::property;
using clock_type = std::chrono::steady_clock;

constexpr double kRateHz = 100;
constexpr std::uint64_t kFramesARun = 300;
constexpr int kPacketBytes = 9000;

double seconds_of(const timeval& time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

/// Processor time, seconds, of this process or of the children that have ended.
double cpu(int who) {
  rusage usage{};
  getrusage(who, &usage);
  return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
}

pid_t spawn(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  pid_t child = -1;
  if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) {
    std::perror(arguments[0]);
    std::exit(1);
  }
  return child;
}

/// gvcam, for as long as this lives. With `quiet` its description has no temperature, so that a frame asks
/// for nothing.
class emulated_camera {
 public:
  explicit emulated_camera(bool quiet) {
    std::vector<std::string> words = {GVCAM, "--picture", "still", "--packet-size",
                                      std::to_string(kPacketBytes)};
    if (quiet) {
      const std::string description = std::string(BINARY_DIR) + "/quiet.xml";
      const std::string make =
          std::string(GVCAM) + " --dump-xml | sed s/DeviceTemperature/NoTemperature/g > " + description;
      if (std::system(make.c_str()) != 0) {
        std::exit(1);
      }
      words.insert(words.end(), {"--xml", description});
    }
    child_ = spawn(words);
    usleep(500'000);
  }
  ~emulated_camera() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
  }
  emulated_camera(const emulated_camera&) = delete;
  emulated_camera& operator=(const emulated_camera&) = delete;

 private:
  pid_t child_ = -1;
};

/// Counts the commands that cross the network, by looking at it.
class command_counter {
 public:
  command_counter() : socket_(socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP))) {
    // UDP (byte 9) to port 3956 (bytes 22 and 23, as the address header has no options).
    std::array<sock_filter, 6> code = {
        {BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 17, 0, 3),
         BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 22), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 3956, 0, 1),
         BPF_STMT(BPF_RET | BPF_K, 64), BPF_STMT(BPF_RET | BPF_K, 0)}};
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    const int yes = 1;
    if (socket_ < 0 || setsockopt(socket_, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0 ||
        setsockopt(socket_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes) != 0) {
      std::perror("command_counter");
      std::exit(1);
    }
  }
  ~command_counter() { close(socket_); }
  command_counter(const command_counter&) = delete;
  command_counter& operator=(const command_counter&) = delete;

  /// Since this was asked last.
  double take() {
    tpacket_stats statistics{};
    socklen_t size = sizeof statistics;
    getsockopt(socket_, SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
    return statistics.tp_packets;
  }

 private:
  int socket_;
};

std::uint8_t row(property id) {
  return static_cast<std::uint8_t>(id);
}

void write_sweep(Zavik::Support::rw_table_like& table, float exposureUs, std::int64_t irLevel) {
  table.setFloat(row(property::VS_SWEEP_MANUAL_EXPOSURE_USEC), 0, exposureUs);
  table.setInt64(row(property::VS_SWEEP_MANUAL_IR_LEVEL), 0, irLevel);
}

/// A host that counts, ends the run after so many frames, and gives one sweep in the middle when asked to.
class counting_host final : public mg::device_handler_like, public mg::cam_stream_handler_like {
 public:
  explicit counting_host(bool sweeps) : sweeps_(sweeps) {}

  void heartbeat() override {
    if (++frames_ % (kFramesARun + 1) == 1) {
      cpuBefore_ = cpu(RUSAGE_SELF);  // like the bare loop: from the first frame on
    }
  }
  std::int32_t getPendingSignal() override {
    if (frames_ % (kFramesARun + 1) != 0) {
      return mg::kPENDING_SIGNAL__NONE;
    }
    frameUs = (cpu(RUSAGE_SELF) - cpuBefore_) / kFramesARun * 1e6;
    return mg::kPENDING_SIGNAL__SIGTERM;
  }
  bool tryPopPendingSweepConf(Zavik::Support::rw_table_like* table) override {
    if (!sweeps_ || frames_ % (kFramesARun + 1) != kFramesARun / 2) {
      return false;
    }
    write_sweep(*table, 3000, 1);
    table->setFloat(row(property::VS_SWEEP_MANUAL_GAIN_DB), 0, 6.0F);
    table->setFloat(row(property::VS_SWEEP_MANUAL_GAMMA), 0, 1.5F);
    commands_.take();
    sweepStart_ = clock_type::now();
    return true;
  }
  void sweep_done() {
    sweepMs = std::chrono::duration<double, std::milli>(clock_type::now() - sweepStart_).count();
    sweepCommands = commands_.take();
  }
  void onFrameTick(float) override {}
  void onFrame(const mg::cam_frame_info*, const std::uint8_t* data, std::uint32_t byteCount) override {
    benchmark::DoNotOptimize(data[byteCount - 1]);
  }
  void onNoFrame() override {}

  double frameUs = 0;  // processor time of a frame of the last run, microseconds
  double sweepMs = 0;
  double sweepCommands = 0;

 private:
  bool sweeps_;
  std::uint64_t frames_ = 0;
  double cpuBefore_ = 0;
  command_counter commands_;
  clock_type::time_point sweepStart_;
};

void watch_log(void* host, const log_line* line) {
  if (std::strcmp(line->text, "done: tryPopPendingSweepConf") == 0) {
    static_cast<counting_host*>(host)->sweep_done();
  } else if (line->level == 1) {
    std::fprintf(stderr, "%s: %s\n", line->function, line->text);
  }
}

mg::device_like* create_device(counting_host& host) {
  Zavik::Support::rw_table_like* config = Zavik::Support::Table__Create();
  config->setString(row(property::DEV_SERIAL), 0, "GV000001");
  config->setInt64(row(property::MISC_STREAM_PACKET_SIZE_BYTES_MAX), 0, kPacketBytes);
  config->setFloat(row(property::VS_ACQ_FPS_HZ), 0, kRateHz);
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
  write_sweep(*config, 2000, 0);
  mg::device_like* device = MgBundleCreateDevice(&host, config);
  config->release();
  if (device == nullptr) {
    std::fputs("no device\n", stderr);
    std::exit(1);
  }
  return device;
}

struct unref {
  void operator()(void* object) const { g_object_unref(object); }
};

/// Processor time of a frame, microseconds, of a bare loop over Aravis: receive, hand the buffer back.
double bare_frame_us(bool packetSocket) {
  const std::unique_ptr<ArvCamera, unref> camera(arv_camera_new("127.0.0.1", nullptr));
  arv_camera_set_frame_rate(camera.get(), kRateHz, nullptr);
  arv_camera_gv_set_packet_size(camera.get(), kPacketBytes, nullptr);
  arv_camera_gv_set_packet_size_adjustment(camera.get(), ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
  arv_camera_gv_set_stream_options(
      camera.get(), packetSocket ? ARV_GV_STREAM_OPTION_NONE : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
  const std::unique_ptr<ArvStream, unref> stream(
      arv_camera_create_stream(camera.get(), nullptr, nullptr, nullptr));
  g_object_set(stream.get(), "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
               4 << 20, nullptr);
  const auto payload = static_cast<std::size_t>(arv_camera_get_payload(camera.get(), nullptr));
  for (int i = 0; i < 4; ++i) {
    ArvBuffer* buffer = arv_buffer_new_allocate(payload);
    std::size_t size = 0;
    std::memset(const_cast<void*>(arv_buffer_get_data(buffer, &size)), 0, payload);
    arv_stream_push_buffer(stream.get(), buffer);
  }
  arv_camera_start_acquisition(camera.get(), nullptr);
  double before = 0;
  for (std::uint64_t frames = 0; frames <= kFramesARun;) {
    ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), 1'000'000);
    if (buffer != nullptr) {
      before = frames == 0 ? cpu(RUSAGE_SELF) : before;
      ++frames;
      arv_stream_push_buffer(stream.get(), buffer);
    }
  }
  const double spent = cpu(RUSAGE_SELF) - before;
  arv_camera_stop_acquisition(camera.get(), nullptr);
  return spent / kFramesARun * 1e6;
}

/// The same of Debian's own test tool, which runs until it is told to end.
double camera_test_frame_us(bool packetSocket) {
  const double before = cpu(RUSAGE_CHILDREN);
  std::vector<std::string> words = {"arv-camera-test-0.8",
                                    "-n",
                                    "127.0.0.1",
                                    "-f",
                                    std::to_string(static_cast<int>(kRateHz)),
                                    "-i",
                                    std::to_string(kPacketBytes),
                                    "--duration",
                                    "3"};
  if (!packetSocket) {
    words.insert(words.end(), {"--no-packet-socket"});
  }
  waitpid(spawn(words), nullptr, 0);
  return (cpu(RUSAGE_CHILDREN) - before) / (3 * kRateHz) * 1e6;
}

// Bare loop, bundle and Debian's tool in turns, without what a frame asks of the camera.
void frame_over_the_wire(benchmark::State& state) {
  const bool packetSocket = state.range(0) != 0;
  setenv("GEVARAVIS_PACKET_SOCKET", packetSocket ? "on" : "off", 1);
  const emulated_camera camera(true);
  counting_host host(false);
  LogSetSink(watch_log, &host);
  MgBundleInit();
  double bare = 0;
  double bundle = 0;
  double tool = 0;
  for (auto _ : state) {
    bare += bare_frame_us(packetSocket);
    mg::device_like* device = create_device(host);
    device->run(&host);
    bundle += host.frameUs;
    device->destroy();
    tool += camera_test_frame_us(packetSocket);
  }
  MgBundleFini();
  const auto runs = static_cast<double>(state.iterations());
  state.counters["bare_us"] = bare / runs;
  state.counters["bundle_us"] = bundle / runs;
  state.counters["arv_camera_test_us"] = tool / runs;
  state.counters["ratio"] = bundle / bare;
  state.SetLabel(packetSocket ? "packet socket" : "UDP socket");
}
BENCHMARK(frame_over_the_wire)->Arg(1)->Arg(0)->Iterations(3)->Unit(benchmark::kSecond);

// Commands for each frame in steady state and for a sweep of gain, exposure, gamma and one IR output, and how
// long that and the creation of a device take.
void control_over_the_wire(benchmark::State& state) {
  setenv("GEVARAVIS_PACKET_SOCKET", "on", 1);
  const emulated_camera camera(false);
  command_counter commands;
  MgBundleInit();
  double created = 0;
  double perFrame = 0;
  double sweepCommands = 0;
  double sweepMs = 0;
  for (auto _ : state) {
    counting_host steady(false);
    counting_host sweeping(true);
    LogSetSink(watch_log, &sweeping);
    const auto start = clock_type::now();
    mg::device_like* device = create_device(steady);
    created += std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
    commands.take();
    device->run(&steady);
    perFrame += commands.take() / kFramesARun;
    device->destroy();
    device = create_device(sweeping);
    device->run(&sweeping);
    device->destroy();
    sweepCommands += sweeping.sweepCommands;
    sweepMs += sweeping.sweepMs;
  }
  MgBundleFini();
  const auto runs = static_cast<double>(state.iterations());
  state.counters["creation_ms"] = created / runs;
  state.counters["commands_a_frame"] = perFrame / runs;
  state.counters["sweep_commands"] = sweepCommands / runs;
  state.counters["sweep_ms"] = sweepMs / runs;
}
BENCHMARK(control_over_the_wire)->Iterations(3)->Unit(benchmark::kSecond);

}  // namespace
