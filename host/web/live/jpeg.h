// Pictures as JPEG.
#ifndef HOST_WEB_LIVE_JPEG_H
#define HOST_WEB_LIVE_JPEG_H

#include <string>

#include "host/web/live/grey_image.h"

namespace host {

/// The bytes of a JPEG file. `quality` is 1 to 100. std::runtime_error when the library refuses.
std::string encode_jpeg(const picture& from, int quality);

}  // namespace host

#endif
