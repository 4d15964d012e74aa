// A simulated camera: its features, its frames, and the client that has it open.
#ifndef PLATFORM_SIM_SIMULATED_CAMERA_H
#define PLATFORM_SIM_SIMULATED_CAMERA_H

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
#include "platform/picture/infrared.h"
#include "platform/picture/thermometer.h"
#include "platform/sim/camera_description.h"
#include "platform/sim/feature_set.h"
#include "platform/sim/frame_ring.h"

namespace sim {

// A text of a record. A caller may have filled it in without a terminating zero.
template <std::size_t size>
std::string text_of(const char (&from)[size]) {
  return {from, strnlen(from, size)};
}

// It has no thread. Each call works out what the camera has done since the last call. All members may be
// called from any thread. Accesses pass the journal and faults before they take the camera's lock.
class simulated_camera final : private gev::node_owner, private feature_owner {
 public:
  // Raises std::invalid_argument when the file of the scene cannot be read.
  explicit simulated_camera(camera_description description);

  const std::string& serial() const { return description_.serial; }
  GEV_DEVICE_INTERFACE record() const;
  // Whether the record has this camera's serial number and address.
  bool answers_to(const GEV_DEVICE_INTERFACE& record) const;
  GenApi::CNodeMapRef* node_map() { return &reference_; }

  // The calls of gevapi.h of the same names, for one camera.
  GEV_STATUS open(GevAccessMode mode);
  void close();
  GEV_STATUS read_options(GEV_CAMERA_OPTIONS* to);
  GEV_STATUS write_options(const GEV_CAMERA_OPTIONS* wanted);
  GEV_STATUS start(std::uint32_t numFrames);
  GEV_STATUS abort();
  GEV_STATUS free();
  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs);
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame);
  // Calls `use` with the feature of that name, without journal and faults, and returns its status;
  // FEATURE_NOT_FOUND when the camera has no such feature. Exceptions of `use` go on to the caller.
  template <class Use>
  GEV_STATUS with_feature(const char* name, Use use) {
    const std::scoped_lock lock(mutex_);
    simulated_feature* const feature = features_.present(name);
    return feature == nullptr ? GEVLIB_ERROR_FEATURE_NOT_FOUND : use(*feature);
  }

  // The functions of camera_extension.h for one camera.
  const camera_description& description() const { return description_; }
  bool is_open();
  std::vector<std::unique_ptr<gev::extension_feature>> list_features();
  camera_extension_health_record health();
  void cancel();

  // The functions of sim.h for one camera.
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
    bool isRunning = true;
    bool isSilent = false;  // a fault takes all further frames away
    std::uint64_t lastId = 0;
  };

  std::unique_lock<std::mutex> enter(const gev::feature_access& what) override;
  std::unique_lock<std::mutex> hold() override { return std::unique_lock(mutex_); }

  const char* write_obstacle(bool isLocked) override;
  void before_change() override;
  double measure(std::size_t place) override;

  // All of these under the lock.
  void refresh_settings();
  void read_light();
  void read_window();
  void read_times();
  picture::output_line output_line(const char* line);
  double frames_per_second();
  bool is_transferring() const { return transfer_ && transfer_->isRunning; }
  bool exposes() const { return is_transferring() && !transfer_->isSilent && transfer_->framesLeft > 0; }
  // Exposes all frames that are due by now, for a camera that is paced by the clock.
  void catch_up(std::uint64_t nowUs);
  void expose_for_wait(std::uint64_t nowUs);
  void expose(double startUs);
  void fill(frame_ring::buffer& buffer, double startUs);
  GEV_BUFFER_OBJECT* deliver();
  const picture::scene& scene();
  std::uint64_t next_event(std::uint64_t deadlineUs) const;
  std::size_t payload() const;
  void stop();

  const camera_description description_;
  std::mutex mutex_;
  std::condition_variable wake_;  // notified when the transfer stops
  std::uint64_t stops_ = 0;       // how many transfers stopped

  picture::thermometer thermometer_;
  feature_set features_;
  gev::node_map nodes_;
  GenApi::CNodeMapRef reference_;
  std::optional<GevAccessMode> opened_;
  GEV_CAMERA_OPTIONS options_;

  // Values of features, read again after one of them changed.
  bool areSettingsStale_ = true;
  picture::picture_settings settings_;
  std::uint32_t pixelFormat_ = 0;
  double intervalUs_ = 0;
  double ticksPerUs_ = 0;

  std::optional<picture::scene> scene_;  // the default scene is drawn for the first picture
  std::optional<transfer> transfer_;
  camera_extension_health_record health_{};  // since the camera was opened
  bool isCancelled_ = false;                 // the client that has it open has lost it
  std::uint64_t lost_ = 0;                   // dropped since the transfer started
};

}  // namespace sim

#endif
