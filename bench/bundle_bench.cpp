// What the bundle costs beside the camera's own traffic: its loop against a bare one that makes the same
// calls.
//
// The simulated cameras draw one frame and deliver it at every wait, so that almost nothing but the calls
// themselves is in the measurement.
#include <benchmark/benchmark.h>
#include <gevapi.h>
#include <mediagrabber/bundle.h>
#include <mediagrabber/property.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "core/time_helpers.h"
#include "platform/log2/log_sink.h"
#include "platform/sim/sim.h"
#include "src/gev_device.h"

namespace {
// Allocations of this thread, in whichever library.
thread_local std::uint64_t allocations = 0;
}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

namespace mg = Zavik::Support::MediaGrabber;
using mg::property;

constexpr std::uint64_t kFramesARun = 2000;

/// A host that does nothing but count, and ends the run after so many frames.
class counting_host final : public mg::device_handler_like, public mg::cam_stream_handler_like {
 public:
  explicit counting_host(std::uint64_t frames) : frames_(frames) {}

  void heartbeat() override { ++heartbeats_; }
  std::int32_t getPendingSignal() override {
    return heartbeats_ % frames_ == 0 ? mg::kPENDING_SIGNAL__SIGTERM : mg::kPENDING_SIGNAL__NONE;
  }
  bool tryPopPendingSweepConf(Zavik::Support::rw_table_like* table) override {
    benchmark::DoNotOptimize(table);
    return false;
  }
  void onFrameTick(float tempC) override { benchmark::DoNotOptimize(tempC); }
  void onFrame(const mg::cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) override {
    benchmark::DoNotOptimize(info->timestampUs + data[byteCount - 1]);
    pixels_ = data;
  }
  void onNoFrame() override {}

  const std::uint8_t* pixels_ = nullptr;

 private:
  std::uint64_t frames_;
  std::uint64_t heartbeats_ = 0;
};

void startCameras(std::size_t count) {
  LogSetSink([](void*, const log_line*) {}, nullptr);
  sim::reset();
  std::string cameras;
  for (std::size_t camera = 0; camera < count; ++camera) {
    cameras += "serial=C" + std::to_string(camera) + " sensor=640x480 pacing=free picture=still\n";
  }
  sim::add_cameras(cameras);
  MgBundleInit();
}

struct releaser {
  void operator()(Zavik::Support::rw_table_like* table) const { table->release(); }
};
using table_ptr = std::unique_ptr<Zavik::Support::rw_table_like, releaser>;

table_ptr configuration(std::size_t camera) {
  table_ptr config(Zavik::Support::Table__Create());
  const auto row = [](property id) { return static_cast<std::uint8_t>(id); };
  config->setString(row(property::DEV_SERIAL), 0, "C" + std::to_string(camera));
  config->setFloat(row(property::VS_ACQ_FPS_HZ), 0, 100);
  config->setInt64(row(property::VS_ACQ_FRAME_FORMAT), 0, 1);
  config->setBool(row(property::VS_ACQ_ROTATE180), 0, false);
  config->setInt64(row(property::VS_ACQ_SENSOR_X), 0, 0);
  config->setInt64(row(property::VS_ACQ_SENSOR_Y), 0, 0);
  config->setInt64(row(property::VS_ACQ_SENSOR_W), 0, 640);
  config->setInt64(row(property::VS_ACQ_SENSOR_H), 0, 480);
  config->setFloat(row(property::VS_SWEEP_MANUAL_EXPOSURE_USEC), 0, 4000);
  config->setInt64(row(property::VS_SWEEP_MANUAL_IR_LEVEL), 0, 0);
  return config;
}

mg::device_like* createDevice(counting_host& host, std::size_t camera) {
  return MgBundleCreateDevice(&host, configuration(camera).get());
}

// As createDevice, for any camera of the list: the bundle itself looks at the first eight.
mg::device_like* createListedDevice(counting_host& host, std::size_t camera) {
  std::array<GEV_DEVICE_INTERFACE, 32> records{};
  int count = 0;
  GevGetCameraList(records.data(), static_cast<int>(records.size()), &count);
  const table_ptr config = configuration(camera);
  return new mg::Gigev2::device(&host, config.get(),
                                std::make_shared<mg::Gigev2::camera_api>(&records.at(camera), config.get()));
}

/// The calls of a run, to camera and host, by hand and without checks, texts or a driver around them.
class bare_loop {
 public:
  bare_loop() : sweep_(Zavik::Support::Table__Create()) {
    GEV_DEVICE_INTERFACE record{};
    int count = 0;
    GevGetCameraList(&record, 1, &count);
    GevOpenCamera(&record, GevControlMode, &handle_);
    nodeMap_ = static_cast<GenApi::CNodeMapRef*>(GevGetFeatureNodeMap(handle_));
    GEV_CAMERA_OPTIONS options{};
    GevGetCameraInterfaceOptions(handle_, &options);
    options.streamNumFramesBuffered = 4;
    GevSetCameraInterfaceOptions(handle_, &options);
  }
  ~bare_loop() {
    GevCloseCamera(&handle_);
    sweep_->release();
  }
  bare_loop(const bare_loop&) = delete;
  bare_loop& operator=(const bare_loop&) = delete;

  void run(mg::device_handler_like& handler, mg::cam_stream_handler_like& stream) {
    GevStartTransfer(handle_, 0xFFFFFFFF);
    std::int32_t signal = 0;
    for (std::uint64_t frames = 0; signal == 0; ++frames) {
      GEV_BUFFER_OBJECT* frame = nullptr;
      GevWaitForNextFrame(handle_, &frame, 1000);
      stream.onFrameTick(temperature());
      handler.heartbeat();
      const std::uint64_t nowUs = Time__GetTimeUsec();
      if (frames > 0) {
        mg::cam_frame_info info{
            nowUs, 0, 0, static_cast<std::uint16_t>(frame->w), static_cast<std::uint16_t>(frame->h), 1};
        node<GenApi::IEnumeration>("GainSelector").FromString("SensorAll", true);
        info.gainDb = static_cast<float>(node<GenApi::IFloat>("Gain").GetValue(false, false));
        info.exposureUs = static_cast<float>(node<GenApi::IFloat>("ExposureTime").GetValue(false, false));
        stream.onFrame(&info, frame->address, frame->w * frame->h);
      }
      GevReleaseFrame(handle_, frame);
      signal = handler.getPendingSignal();
      if (signal == 0) {
        handler.tryPopPendingSweepConf(sweep_);
      }
    }
    GevAbortTransfer(handle_);
    GevFreeTransfer(handle_);
  }

 private:
  template <class Interface>
  Interface& node(const char* name) {
    return *dynamic_cast<Interface*>(nodeMap_->_GetNode(name));
  }
  float temperature() {
    auto& selector = node<GenApi::IEnumeration>("DeviceTemperatureSelector");
    if (selector.GetEntryByName("Internal")->GetAccessMode() == GenApi::NI) {
      return 0;
    }
    if (!(selector.GetCurrentEntry(false, false)->ToString(false, false) == "Internal")) {
      selector.FromString("Internal", true);
    }
    return static_cast<float>(node<GenApi::IFloat>("DeviceTemperature").GetValue(false, false));
  }

  GEV_CAMERA_HANDLE handle_ = nullptr;
  GenApi::CNodeMapRef* nodeMap_ = nullptr;
  Zavik::Support::rw_table_like* sweep_;
};

double median(std::vector<double>& values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

/// Nanoseconds and allocations of one frame when `run` makes kFramesARun of them.
struct cost {
  std::vector<double> ns;
  double allocated = 0;

  template <class Run>
  void measure(Run run) {
    const std::uint64_t before = allocations;
    const auto start = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    ns.push_back(took.count() / kFramesARun);
    allocated = static_cast<double>(allocations - before) / kFramesARun;
  }
};

// Both loops in turns, each over the same number of frames: medians, their ratio, and what the bundle itself
// allocates.
void frame_of_bundle_against_bare_loop(benchmark::State& state) {
  startCameras(2);
  counting_host host(kFramesARun);
  mg::device_like* device = createDevice(host, 1);
  bare_loop bare;
  cost bundled;
  cost byHand;
  for (auto _ : state) {
    byHand.measure([&] { bare.run(host, host); });
    bundled.measure([&] { device->run(&host); });
  }
  device->destroy();
  const double bundledNs = median(bundled.ns);
  const double byHandNs = median(byHand.ns);
  state.counters["bundle_ns"] = bundledNs;
  state.counters["bare_ns"] = byHandNs;
  state.counters["ratio"] = bundledNs / byHandNs;
  state.counters["bundle_allocs"] =
      bundled.allocated - byHand.allocated;  // the rest are the camera library's
}
BENCHMARK(frame_of_bundle_against_bare_loop)->Unit(benchmark::kMillisecond)->MinTime(3);

// Devices, each on a thread of its own: processor time and wall time of a frame, over all of them.
void frame_of_many_devices(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  startCameras(count);
  std::vector<counting_host> hosts(count, counting_host(kFramesARun));
  std::vector<mg::device_like*> devices;
  for (std::size_t i = 0; i < count; ++i) {
    devices.push_back(createListedDevice(hosts[i], i));
  }
  for (auto _ : state) {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count; ++i) {
      threads.emplace_back([&, i] { devices[i]->run(&hosts[i]); });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  for (mg::device_like* device : devices) {
    device->destroy();
  }
  const auto frames =
      static_cast<double>(state.iterations() * state.range(0)) * static_cast<double>(kFramesARun);
  state.counters["cpu_a_frame"] =
      benchmark::Counter(frames, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(frame_of_many_devices)
    ->RangeMultiplier(2)
    ->Range(1, 32)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

void creation_of_a_device(benchmark::State& state) {
  startCameras(1);
  counting_host host(1);
  for (auto _ : state) {
    createDevice(host, 0)->destroy();
  }
}
BENCHMARK(creation_of_a_device)->Unit(benchmark::kMicrosecond);

}  // namespace
