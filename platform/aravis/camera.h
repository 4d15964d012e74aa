// An open camera on the network: its features, its options, its transfer.
#ifndef PLATFORM_ARAVIS_CAMERA_H
#define PLATFORM_ARAVIS_CAMERA_H

#include <gevapi.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/aravis/arv_feature.h"
#include "platform/aravis/discovery.h"
#include "platform/aravis/environment.h"
#include "platform/aravis/frame_stream.h"
#include "platform/aravis/link.h"
#include "platform/aravis/watch.h"
#include "platform/gev/node_map.h"

namespace gige {

// One lock for everything that reaches the camera, since Aravis has none for a description; waiting for
// frames does not take it. Members may be called from any thread, as far as gevapi.h has it.
class camera final : private gev::gate {
 public:
  // Opens the camera and sets `opened` to it, or tells why not, in the log, too.
  static GEV_STATUS open(const found_camera& which, GevAccessMode mode, const environment& surroundings,
                         std::shared_ptr<camera>& opened);
  // Stops and frees a transfer, and gives control back. Quick even when the camera does not answer.
  ~camera() override;

  GenApi::CNodeMapRef* node_map() { return &reference_; }

  // The calls of gevapi.h for one camera, with their statuses. Exceptions of the node map come through.
  GEV_CAMERA_OPTIONS options();
  GEV_STATUS set_options(const GEV_CAMERA_OPTIONS& wanted);
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
    gev::feature* const feature = find(name);
    return feature == nullptr ? GEVLIB_ERROR_FEATURE_NOT_FOUND : use(*feature);
  }

 private:
  camera(const found_camera& which, GevAccessMode mode, const environment& surroundings,
         owned<ArvDevice> device);

  std::unique_lock<std::mutex> enter(const gev::feature_access& /*what*/) override {
    return std::unique_lock(mutex_);
  }
  std::unique_lock<std::mutex> hold() override { return std::unique_lock(mutex_); }

  bool answers() const;
  void close();

  // All of these under the lock.
  void make_features();
  gev::feature* find(std::string_view name);
  std::optional<std::int64_t> number(const char* name);
  void write_if_present(const char* name, const gev::value& to);
  std::uint32_t read_register(std::uint32_t address);
  bool write_register(const char* what, std::uint32_t address, std::uint32_t value);
  void register_changed(std::uint32_t address);
  void read_options();
  bool write_heartbeat();
  bool write_packet_options();
  stream_setup setup_of_transfer();
  void start_acquisition();
  void stop_acquisition();
  bool execute(const char* command);

  const std::shared_ptr<link> link_;
  const environment surroundings_;
  const std::uint32_t ownAddress_;
  const std::uint32_t address_;
  std::mutex mutex_;

  owned<ArvDevice> device_;
  gulong controlLost_ = 0;  // our place among those whom Aravis tells
  wire wire_;
  owned<ArvGc> description_;
  node_graph graph_;
  feature_host host_;
  std::vector<std::unique_ptr<arv_feature>> features_;
  std::unordered_map<std::string_view, arv_feature*> byName_;
  gev::node_map nodes_;
  GenApi::CNodeMapRef reference_;

  GEV_CAMERA_OPTIONS options_;
  bool packetOptionsWritten_ = false;
  std::uint64_t ticksPerSecond_ = 0;
  frame_stream stream_;
  std::uint64_t commandsBefore_ = 0;  // the transfer
  std::optional<watch> watch_;
};

}  // namespace gige

#endif
