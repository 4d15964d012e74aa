// An open camera on the network: its features, its options, its transfer.
#ifndef PLATFORM_GIGE_NETWORK_CAMERA_H
#define PLATFORM_GIGE_NETWORK_CAMERA_H

#include <camera_extension.h>
#include <gevapi.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/gev/extension_feature.h"
#include "platform/gev/node_map.h"
#include "platform/gige/bootstrap_registers.h"
#include "platform/gige/channel_port.h"
#include "platform/gige/control/camera_control.h"
#include "platform/gige/control/connection_state.h"
#include "platform/gige/control/control_channel.h"
#include "platform/gige/description/camera_features.h"
#include "platform/gige/environment.h"
#include "platform/gige/stream/frame_stream.h"
#include "platform/gige/stream_channel.h"

namespace gige {

// The two ends of a control channel: IPv4 addresses in host byte order.
struct endpoints {
  std::uint32_t camera = 0;
  std::uint32_t own = 0;  // 0: the one that the routing table chooses
};

// One lock guards all commands and the nodes, which have no lock of their own. A wait for frames does not
// take it. Members may be called from any thread, within the limits of gevapi.h.
class network_camera final : private gev::node_owner {
 public:
  // Opens the camera: takes access and reads the description. Every wait for this camera ends when
  // `connection` is lost or cancelled. Raises control_error, description_error, and exceptions of the node
  // map.
  network_camera(std::shared_ptr<connection_state> connection, const endpoints& ends, GevAccessMode mode,
                 const environment& settings);
  // Stops and frees a transfer, and gives control back. Takes 0.1 s at most, whatever the camera does.
  ~network_camera() override;

  const std::string& serial() const { return connection_->camera(); }
  GenApi::CNodeMapRef* node_map() { return &reference_; }

  // The calls of gevapi.h for one camera, with their statuses. They also raise exceptions of the node map.
  GEV_STATUS read_options(GEV_CAMERA_OPTIONS* to);
  GEV_STATUS write_options(const GEV_CAMERA_OPTIONS* wanted);
  GEV_STATUS start(std::uint32_t numFrames);
  GEV_STATUS abort();
  GEV_STATUS free();
  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs) {
    return stream_.wait(frame, timeoutMs);
  }
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame) { return stream_.release(frame); }
  // Calls `use` with the feature of that name; FEATURE_NOT_FOUND when the camera has none.
  template <class Use>
  GEV_STATUS with_feature(const char* name, Use use) {
    const std::scoped_lock lock(mutex_);
    gev::feature* const feature = features_->find(name);
    return feature == nullptr ? GEVLIB_ERROR_FEATURE_NOT_FOUND : use(*feature);
  }

  // The present state of all features, in the order of the description.
  std::vector<std::unique_ptr<gev::extension_feature>> list_features();

  // Sets every field of the record but its size. Takes no lock that others hold for long.
  void read_health(camera_extension_health_record& record) const { stream_.read_health(record); }
  // Ends all waits for this camera within 0.1 s. Called before the last owner closes it.
  void end_waits();

 private:
  std::unique_lock<std::mutex> enter(const gev::feature_access& /*what*/) override {
    return std::unique_lock(mutex_);
  }
  std::unique_lock<std::mutex> hold() override { return std::unique_lock(mutex_); }

  // All of these under the lock.
  std::unique_ptr<camera_features> read_features();
  std::string read_url(std::uint32_t address);
  void read_camera_options();
  bool send_options();
  GEV_STATUS failure() const;
  std::uint32_t read_size(const char* name);
  std::uint32_t read_pixel_format();
  stream_setup read_stream_setup();
  void prepare_stream();
  std::uint32_t find_packet_size();
  void write_if_present(const char* name, const gev::value& to);
  void select_continuous_mode();
  void start_acquisition();
  void stop_acquisition();

  const std::shared_ptr<connection_state> connection_;
  const environment environment_;
  const bool monitoring_;  // opened to read only
  std::mutex mutex_;

  GEV_CAMERA_OPTIONS options_;
  control_channel channel_;
  camera_control control_;
  channel_port port_;
  const std::unique_ptr<camera_features> features_;
  bootstrap_registers registers_;
  stream_channel streamChannel_;
  gev::node_map nodes_;
  GenApi::CNodeMapRef reference_;

  bool resends_ = false;              // the camera announces that it sends packets again
  bool acquiring_ = false;            // between start and abort
  std::uint64_t commandsBefore_ = 0;  // the transfer
  frame_stream stream_;
};

}  // namespace gige

#endif
