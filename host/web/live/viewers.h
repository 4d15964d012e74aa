// Everybody who looks at the page: a stream of events and a stream of pictures each.
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

/// The streams, and the thread that fills them. It runs at a low priority, so that no number of viewers takes
/// processor time from acquisition and recording; it sleeps while there is no viewer.
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

  /// A stream for the viewer of that name, which names what belongs together; null when there are too many.
  std::shared_ptr<web_stream> open_events(const std::string& viewer);
  std::shared_ptr<web_stream> open_pictures(const std::string& viewer, std::vector<camera_view> views);
  /// What a viewer wants to see from now on. False when it has no stream of pictures.
  bool set_views(const std::string& viewer, std::vector<camera_view> views);

 private:
  // By serial number, the number of arrivals that a viewer knows.
  using known_arrivals = std::map<std::string, std::uint64_t>;

  struct events {
    std::string viewer;
    std::weak_ptr<outbox> out;
    // The thread's.
    std::uint64_t logged = 0;
    known_arrivals arrivals;
  };
  struct pictures {
    std::string viewer;
    std::weak_ptr<outbox> out;
    std::mutex mutex;  // guards `views`
    std::vector<camera_view> views;
    // The thread's.
    std::vector<camera_view> seen;    // the views that the two below belong to
    std::vector<std::uint64_t> sent;  // number of the frame, by view
    std::size_t next = 0;             // the view whose turn it is
  };
  template <class Stream>
  using stream_list = std::vector<std::shared_ptr<Stream>>;

  template <class Stream>
  std::shared_ptr<web_stream> open(stream_list<Stream>& streams, std::shared_ptr<Stream> fresh);
  void work(const std::stop_token& stop);
  void fill_events(const stream_list<events>& all, const stream_list<pictures>& looking);
  void fill_pictures(const stream_list<pictures>& all);
  std::string news_for(events& viewer, const std::string& cameras, const stream_list<pictures>& looking);
  std::string arrivals_for(known_arrivals& known, const std::string& serial);
  std::string next_picture(pictures& viewer, picture_maker& maker);
  shared_frame fresh_frame(const camera_view& view);

  live_run& run_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  stream_list<events> events_;
  stream_list<pictures> pictures_;
  bool isEnding_ = false;
  std::jthread thread_;
};

}  // namespace host

#endif
