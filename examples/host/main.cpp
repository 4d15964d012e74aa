// A whole host: takes ten frames of one simulated camera and prints how bright they are.
// docs/host-contract.md walks through it.
#include <dlfcn.h>
#include <mediagrabber/bundle.h>
#include <mediagrabber/device.h>
#include <mediagrabber/platform/log_sink.h>
#include <mediagrabber/property.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "core/table.h"

namespace {

using namespace Zavik::Support;
using namespace Zavik::Support::MediaGrabber;

constexpr int kFramesWanted = 10;

// Warnings and errors only.
void write_log(void*, const log_line* line) {
  if (line->level <= 2) {
    std::fprintf(stderr, "%s:%d %s: %s\n", line->file, line->line, line->function, line->text);
  }
}

void* open_library(const char* path, int scope) {
  void* const library = dlopen(path, RTLD_NOW | scope);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(1);
  }
  return library;
}

template <class Function>
Function* function(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

// What the bundle asks and tells, all of it on the thread that called `run`.
class grabber : public device_handler_like, public cam_stream_handler_like {
 public:
  void heartbeat() override {}
  std::int32_t getPendingSignal() override {
    return frames_ < kFramesWanted ? kPENDING_SIGNAL__NONE : kPENDING_SIGNAL__SIGTERM;
  }
  bool tryPopPendingSweepConf(rw_table_like*) override { return false; }

  void onFrameTick(float) override {}
  void onFrame(const cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) override {
    ++frames_;
    const double sum = std::accumulate(data, data + byteCount, 0.0);
    std::printf("frame %d: %ux%u, exposure %.0f us, mean grey %.1f\n", frames_, unsigned{info->width},
                unsigned{info->height}, static_cast<double>(info->exposureUs), sum / byteCount);
  }
  void onNoFrame() override { std::puts("a second without a frame"); }

  int frames() const { return frames_; }

 private:
  int frames_ = 0;
};

// The rows that a device can't do without.
void describe(rw_table_like& table, const char* serial) {
  const auto row = [](property which) { return static_cast<std::uint8_t>(which); };
  table.setString(row(property::DEV_SERIAL), 0, serial);
  table.setFloat(row(property::VS_ACQ_FPS_HZ), 0, 30);
  table.setInt64(row(property::VS_ACQ_FRAME_FORMAT), 0, 1);  // Mono8
  table.setBool(row(property::VS_ACQ_ROTATE180), 0, false);
  table.setInt64(row(property::VS_ACQ_SENSOR_X), 0, 0);
  table.setInt64(row(property::VS_ACQ_SENSOR_Y), 0, 0);
  table.setInt64(row(property::VS_ACQ_SENSOR_W), 0, 640);
  table.setInt64(row(property::VS_ACQ_SENSOR_H), 0, 480);
  table.setFloat(row(property::VS_SWEEP_MANUAL_EXPOSURE_USEC), 0, 5000);
  table.setInt64(row(property::VS_SWEEP_MANUAL_IR_LEVEL), 0, 0);
  table.setInt64(row(property::PIN_COUNT), 0, 0);
}

}  // namespace

int main(int argc, char** argv) {
  LogSetSink(write_log, nullptr);
  open_library(CAMERAS, RTLD_GLOBAL);  // first: the bundle then finds the library that it needs by name
  void* const bundle = open_library(BUNDLE, RTLD_LOCAL);
  if (function<decltype(MgBundleInit)>(bundle, "MgBundleInit")() != 1) {
    return 1;
  }
  grabber host;
  rw_table_like* const table = Table__Create();
  describe(*table, argc > 1 ? argv[1] : "SIM00001");
  device_like* const device =
      function<decltype(MgBundleCreateDevice)>(bundle, "MgBundleCreateDevice")(&host, table);
  table->release();
  if (device != nullptr) {
    device->run(&host);
    device->destroy();
  }
  function<decltype(MgBundleFini)>(bundle, "MgBundleFini")();
  return host.frames() == kFramesWanted ? 0 : 1;
}
