#include "host/web/live/jpeg.h"

#include <fmt/format.h>
#include <turbojpeg.h>

#include <memory>
#include <stdexcept>

namespace host {

std::string encode_jpeg(const picture& from, int quality) {
  const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
  const bool isGrey = from.channels == 1;
  const int subsampling = isGrey ? TJSAMP_GRAY : TJSAMP_444;
  std::string bytes(tjBufSize(from.width, from.height, subsampling), '\0');
  auto* target = reinterpret_cast<unsigned char*>(bytes.data());
  unsigned long size = bytes.size();
  if (!encoder ||
      tjCompress2(encoder.get(), from.bytes.data(), from.width, 0, from.height, isGrey ? TJPF_GRAY : TJPF_RGB,
                  &target, &size, subsampling, quality, TJFLAG_NOREALLOC) != 0) {
    throw std::runtime_error(fmt::format("a picture of {} x {} can't be made a JPEG: {}", from.width,
                                         from.height, tjGetErrorStr2(encoder.get())));
  }
  bytes.resize(size);
  return bytes;
}

}  // namespace host
