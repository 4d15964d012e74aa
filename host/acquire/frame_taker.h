// Who takes the frames of a camera: a recording, a video, a preview.
#ifndef HOST_ACQUIRE_FRAME_TAKER_H
#define HOST_ACQUIRE_FRAME_TAKER_H

#include <mediagrabber/device.h>

#include <cstdint>
#include <span>

namespace host {

using Zavik::Support::MediaGrabber::cam_frame_info;

class frame_taker {
 public:
  /// A frame of the acquisition, numbered from 1. On the acquisition's thread, which must not be made to
  /// wait; `pixels` are valid during the call only.
  virtual void offer(const cam_frame_info& info, std::uint64_t number,
                     std::span<const std::uint8_t> pixels) = 0;

 protected:
  ~frame_taker() = default;
};

}  // namespace host

#endif
