// The viewers of the page: a stream of events and a stream of pictures each.
#ifndef HOST_WEB_LIVE_VIEWERS_H
#define HOST_WEB_LIVE_VIEWERS_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "host/web/live/live_run.h"
#include "host/web/live/outbox.h"
#include "host/web/live/view.h"
#include "host/web/message.h"

namespace host {

/// The streams, and the thread that fills them. The thread has a low priority, so that no number of viewers
/// takes processor time from acquisition and recording. It sleeps while there is no viewer.
///
/// Events ("text/event-stream") come twice a second: "cameras" (see cameras_json), "log" (see log_json) when
/// there are lines, and "arrivals" for each camera in view with details:
/// {"camera","from","now_us","times_us","missed"}: of the frames since the last such event, when they arrived
/// (monotonic clock) and how many were missed before each; `from` counts the frames before the first of them.
/// The first event goes back a minute.
///
/// Pictures come one after the other, as picture_maker makes them, of the cameras in view in turn, each
/// frame once.
class live_viewers {
 public:
  static constexpr std::size_t kViewersMax = 64;

  explicit live_viewers(live_run& run);
  ~live_viewers();
  live_viewers(const live_viewers&) = delete;
  live_viewers& operator=(const live_viewers&) = delete;

  /// A stream for the viewer of that name, by which the two streams of one page find each other. Null when
  /// there are `kViewersMax` of its kind.
  std::shared_ptr<web_stream> open_events(const std::string& viewer);
  std::shared_ptr<web_stream> open_pictures(const std::string& viewer, std::vector<camera_view> views);
  /// What a viewer wants to see from now on. False when it has no stream of pictures.
  bool set_views(const std::string& viewer, std::vector<camera_view> views);

 private:
  // By serial number, how many arrivals a viewer has.
  using known_arrivals = std::map<std::string, std::uint64_t>;

  struct event_stream {
    std::string viewer;
    std::weak_ptr<outbox> out;
    // The thread's.
    std::uint64_t lastLine = 0;  // number of the last log line that the viewer has
    known_arrivals arrivals;
  };
  struct picture_stream {
    std::string viewer;
    std::weak_ptr<outbox> out;
    std::mutex mutex;  // guards `wanted`
    std::vector<camera_view> wanted;
    // The thread's.
    std::vector<camera_view> views;      // as they were wanted last
    std::vector<std::uint64_t> numbers;  // of the frame that was sent last, by view
    std::size_t next = 0;                // the view whose turn it is
  };
  template <class Stream>
  using stream_list = std::vector<std::shared_ptr<Stream>>;

  template <class Stream>
  std::shared_ptr<web_stream> open(stream_list<Stream>& streams, std::shared_ptr<Stream> fresh);
  void work(const std::stop_token& stop);
  void fill_events();
  std::string news_for(event_stream& stream, const std::string& cameras);
  std::string arrivals_for(known_arrivals& known, const std::string& serial);
  void fill_pictures();
  static void take_wanted_views(picture_stream& stream);
  std::string next_picture(picture_stream& stream, picture_maker& maker);
  shared_frame fresh_frame(const camera_view& view);

  live_run& run_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  stream_list<event_stream> events_;
  stream_list<picture_stream> pictures_;
  bool isEnding_ = false;

  // The thread's copies of the lists, so that it fills them without the lock.
  stream_list<event_stream> currentEvents_;
  stream_list<picture_stream> currentPictures_;
  std::jthread thread_;
};

}  // namespace host

#endif
