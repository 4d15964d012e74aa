// A simulated camera: its features, its frames, and who has it open.
#ifndef PLATFORM_SIM_CAMERA_H
#define PLATFORM_SIM_CAMERA_H

#include <camera_extension.h>
#include <gevapi.h>

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/gev/extension_feature.h"
#include "platform/gev/node_map.h"
#include "platform/picture/thermometer.h"
#include "platform/sim/description.h"
#include "platform/sim/features.h"
#include "platform/sim/frame_ring.h"

namespace sim {

// A text of a record that a caller may have filled in, so that it need not end.
template <std::size_t size>
std::string text_of(const char (&from)[size]) {
  return {from, strnlen(from, size)};
}

// There is no thread in it: what the camera did since the last time is worked out whenever somebody asks.
// All members may be called from any thread; the camera's lock is not held while the journal or a fault
// has its say.
class camera final : private gev::node_owner, private feature_host {
 public:
  // Raises std::invalid_argument when the scene cannot be read.
  explicit camera(camera_description description);

  const std::string& serial() const { return description_.serial; }
  GEV_DEVICE_INTERFACE record() const;
  // Whether that is its record: the serial number and the address are the same.
  bool answers_to(const GEV_DEVICE_INTERFACE& record) const;
  GenApi::CNodeMapRef* node_map() { return &reference_; }

  // The calls of gevapi.h for one camera, with their statuses.
  GEV_STATUS open(GevAccessMode mode);
  void close();
  GEV_STATUS read_options(GEV_CAMERA_OPTIONS* to);
  GEV_STATUS write_options(const GEV_CAMERA_OPTIONS* wanted);
  GEV_STATUS start(std::uint32_t numFrames);
  GEV_STATUS abort();
  GEV_STATUS free();
  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs);
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame);
  // Calls `use` with the feature of that name, past the journal and the faults; FEATURE_NOT_FOUND when the
  // camera has none. Exceptions of the node map come through.
  template <class Use>
  GEV_STATUS with_feature(const char* name, Use use) {
    const std::scoped_lock lock(mutex_);
    camera_feature* const feature = features_.present(name);
    return feature == nullptr ? GEVLIB_ERROR_FEATURE_NOT_FOUND : use(*feature);
  }

  // What camera_extension.h offers for one camera.
  const camera_description& description() const { return description_; }
  bool is_open();
  std::vector<std::unique_ptr<gev::extension_feature>> list_features();
  camera_extension_health_record health();
  void cancel();

  // What sim.h offers for one camera.
  std::string feature_text(const std::string& name, const std::string& selected);
  void force_feature(const std::string& name, const std::string& text);
  void alter_feature(const std::string& name, const std::string& property, const std::string& text);
  std::uint64_t frames_lost();
  bool has_transfer();
  std::size_t frames_held();

 private:
  // A transfer, from its start until its buffers are freed.
  struct transfer {
    frame_ring ring;
    std::uint64_t framesLeft;
    double nextStartUs;  // when the next exposure starts
    bool running = true;
    bool silent = false;  // a fault took the frames away
    std::uint64_t lastId = 0;
  };

  std::unique_lock<std::mutex> enter(const gev::feature_access& what) override;
  std::unique_lock<std::mutex> hold() override { return std::unique_lock(mutex_); }

  const char* write_obstacle(bool locked) override;
  void before_change() override;
  double measure(std::size_t place) override;

  // All of these under the lock.
  void refresh_settings();
  double lit_us(const char* line);
  double frames_per_second();
  bool transferring() const { return transfer_ && transfer_->running; }
  bool exposes() const { return transferring() && !transfer_->silent && transfer_->framesLeft > 0; }
  // Exposes what is due by now, for a camera that is paced by the clock.
  void catch_up(std::uint64_t nowUs);
  // Exposes one frame for a wait, for one that is not. After one that a fault took away the next comes an
  // interval later.
  void expose_for_wait(std::uint64_t nowUs);
  void expose(double startUs);
  void fill(frame_ring::buffer& buffer, double startUs);
  GEV_BUFFER_OBJECT* deliver();
  const picture::scene& the_scene();
  std::uint64_t next_event(std::uint64_t deadlineUs) const;
  std::size_t payload() const;
  void stop();

  const camera_description description_;
  std::mutex mutex_;
  std::condition_variable wake_;  // notified when the transfer stops
  std::uint64_t stops_ = 0;       // so often it stopped

  picture::thermometer thermometer_;
  camera_features features_;
  gev::node_map nodes_;
  GenApi::CNodeMapRef reference_;
  std::optional<GevAccessMode> opened_;
  GEV_CAMERA_OPTIONS options_;

  // What the features say, read out once after each change.
  bool settingsStale_ = true;
  picture::picture_settings settings_;
  std::uint32_t pixelFormat_ = 0;
  double intervalUs_ = 0;
  double ticksPerUs_ = 0;

  std::optional<picture::scene> scene_;  // drawn with the first picture, except one from a file
  std::optional<transfer> transfer_;
  camera_extension_health_record health_{};  // since the camera was opened
  bool cancelled_ = false;                   // lost to whoever has it open
  std::uint64_t lost_ = 0;
};

}  // namespace sim

#endif
