// An open camera on the network: its features, its options, its transfer.
#ifndef PLATFORM_GIGE_CAMERA_H
#define PLATFORM_GIGE_CAMERA_H

#include <camera_extension.h>
#include <gevapi.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/gev/extension_feature.h"
#include "platform/gev/node_map.h"
#include "platform/gige/channel_port.h"
#include "platform/gige/control/camera_control.h"
#include "platform/gige/control/control_channel.h"
#include "platform/gige/control/link.h"
#include "platform/gige/description/camera_features.h"
#include "platform/gige/environment.h"
#include "platform/gige/stream/frame_stream.h"

namespace gige {

// Where a camera is; addresses are IPv4 in host byte order.
struct camera_place {
  std::uint32_t address = 0;
  std::uint32_t ownAddress = 0;  // ours towards it; 0: as the routes lead
};

// One lock for everything that asks the camera, since its nodes have none of their own; waiting for frames
// does not take it. Members may be called from any thread, as far as gevapi.h has it.
class camera final : private gev::gate {
 public:
  // Opens the camera: takes access, reads its description. Everything that waits for it from here on ends
  // when `owner` is lost or cancelled. Raises control_error, description_error, and exceptions of the node
  // map.
  camera(std::shared_ptr<link> owner, const camera_place& where, GevAccessMode mode,
         environment surroundings);
  // Stops and frees a transfer, and gives control back. Takes 0.1 s at most, whatever the camera does.
  ~camera() override;

  const std::string& serial() const { return link_->camera(); }
  GenApi::CNodeMapRef* node_map() { return &reference_; }

  // The calls of gevapi.h for one camera, with their statuses. Exceptions of the node map come through.
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

  // The features as they are now, in the order of the description.
  std::vector<std::unique_ptr<gev::extension_feature>> list_features();

  // Sets every field of the record but its size. Never waits for anybody.
  void read_health(camera_extension_health_record& record) const { stream_.read_health(record); }
  // Ends what others wait for in this camera, within 0.1 s, for the camera to be closed.
  void hurry();

 private:
  std::unique_lock<std::mutex> enter(const gev::feature_access& /*what*/) override {
    return std::unique_lock(mutex_);
  }
  std::unique_lock<std::mutex> hold() override { return std::unique_lock(mutex_); }

  // All of these under the lock.
  std::unique_ptr<camera_features> read_features();
  void read_camera_options();
  bool send_options();
  bool write_packet_delay();
  stream_setup setup_of_transfer();
  void prepare_stream();
  void point_stream_here();
  std::uint32_t settle_packet_size();
  std::uint32_t fire_test_packet(std::uint32_t size);
  void start_acquisition();
  void stop_acquisition();
  void write_if_present(const char* name, const gev::value& to);
  std::uint32_t needed_size(const char* name);
  std::uint32_t read_register(std::uint32_t address);
  std::uint32_t read_if_there(std::uint32_t address);
  void write_register(std::uint32_t address, std::uint32_t value);
  bool try_to_write(const char* what, std::uint32_t address, std::uint32_t value);
  std::uint32_t packet_size_flags();
  GEV_STATUS failure() const;

  const std::shared_ptr<link> link_;
  const environment surroundings_;
  const bool monitoring_;
  std::mutex mutex_;

  GEV_CAMERA_OPTIONS options_;
  control_channel channel_;
  camera_control control_;
  channel_port port_;
  const std::unique_ptr<camera_features> features_;
  gev::node_map nodes_;
  GenApi::CNodeMapRef reference_;

  std::uint64_t ticksPerSecond_ = 0;
  bool resends_ = false;              // it announces that it sends packets again
  bool extendedIds_ = false;          // of its stream
  bool tellsSourcePort_ = false;      // where it sends from
  std::uint16_t pointedPort_ = 0;     // ours, where it was told to send; 0: not yet
  std::uint16_t sourcePort_ = 0;      // that, once it was told where to; 0: not known
  bool packetDelayWritten_ = false;   // since the options were set
  bool packetSizeSettled_ = false;    // since then: tried on the path
  bool acquiring_ = false;            // the camera was told to send
  std::uint64_t commandsBefore_ = 0;  // the transfer
  frame_stream stream_;
};

}  // namespace gige

#endif
