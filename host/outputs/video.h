// Frames as one stream of uncompressed video, which players and encoders read from a file or a pipe.
#ifndef HOST_OUTPUTS_VIDEO_H
#define HOST_OUTPUTS_VIDEO_H

#include <string>
#include <string_view>

#include "host/config/descriptor.h"
#include "host/outputs/frame_writer.h"

namespace host {

/// The first line of a stream: "YUV4MPEG2 W1280 H1024 F30000:1000 Ip A1:1 Cmono XCOLORRANGE=FULL\n".
std::string y4m_header(std::size_t width, std::size_t height, double frameRateHz);

/// Writes to a file, a named pipe or standard output. A named pipe is opened with the first frame and needs
/// a reader by then; frames before are dropped. The writer's thread waits for a slow reader. When the reader
/// goes away, the video ends.
class y4m_stream final : public frame_sink {
 public:
  /// `path` "-" is standard output. output_error when it can't be opened, or when there is a file that is not
  /// to be overwritten.
  y4m_stream(std::string path, double frameRateHz, bool isOverwriting);

  std::uint64_t write(const stored_frame& frame, const std::stop_token& stop) override;

 private:
  void open_path(int flags);
  void send(std::string_view bytes, const std::stop_token& stop);

  std::string path_;
  double frameRateHz_;
  descriptor file_;
  bool isPipe_ = false;
  bool isBroken_ = false;  // a frame was cut off: what follows would not be understood
  std::uint16_t width_ = 0;
  std::uint16_t height_ = 0;  // 0: the header is not written yet
};

}  // namespace host

#endif
