// What a viewer wants to see of the cameras, and the pictures made of it.
#ifndef HOST_WEB_LIVE_VIEW_H
#define HOST_WEB_LIVE_VIEW_H

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "host/web/live/grey_image.h"
#include "host/web/live/preview.h"

namespace host {

/// Something in a request is wrong. The text says what would be right.
class request_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One camera in a viewer's window.
struct camera_view {
  std::string serial;
  int width = 320;                                ///< pixels a line of the picture, at most
  std::optional<rectangle> part = std::nullopt;   ///< of the image; none: all of it
  std::optional<rectangle> focus = std::nullopt;  ///< where sharpness is wanted
  std::optional<point> pointer = std::nullopt;    ///< where the grey value is wanted
  bool marksClipping = false;                     ///< black and white pixels in colour
  bool wantsDetails = false;                      ///< the histogram, and when frames came

  bool operator==(const camera_view&) const = default;
};

inline constexpr std::size_t kViewsMax = 64;   ///< of one viewer
inline constexpr int kPictureWidthMax = 4096;  ///< pixels

/// The views in a JSON text, an array of
/// {"camera":"SIM00001","width":640,"part":[x,y,width,height],"focus":[x,y,width,height],"pointer":[x,y],
/// "clipping":true,"details":true}, of which only "camera" must be there. request_error.
std::vector<camera_view> parse_views(const std::string& json);

/// Makes the pictures of one round. Viewers that look at the same part of the same frame share the work.
class picture_maker {
 public:
  /// One picture as it is sent: a line of JSON about it, whose "bytes" is the length of the JPEG that
  /// follows.
  std::string make(const camera_view& view, const stored_frame& frame);

 private:
  using jpeg_key = std::tuple<std::string, std::uint64_t, int, int, int, int, int, bool>;

  const std::string& jpeg_of(const camera_view& view, const stored_frame& frame, const rectangle& part);
  const image_histogram& histogram_of(const camera_view& view, const stored_frame& frame);

  std::map<jpeg_key, std::string> jpegs_;
  std::map<std::pair<std::string, std::uint64_t>, image_histogram> histograms_;
};

}  // namespace host

#endif
