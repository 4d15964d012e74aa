#include "host/web/live/viewers.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/log.h"
#include "host/web/live/body_worker.h"
#include "host/web/live/live_json.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::ordered_json;

constexpr auto kPicturesEvery = 25ms;  // a new frame waits so long at most
constexpr auto kEventsEvery = 500ms;
constexpr std::uint64_t kMinuteUs = 60'000'000;

std::string event(const char* name, const std::string& data) {
  return fmt::format("event: {}\ndata: {}\n\n", name, data);
}

// Those that nobody reads any more.
template <class Streams>
void drop_left(Streams& streams) {
  std::erase_if(streams, [](const auto& each) { return each->out.expired(); });
}

template <class Streams>
void close_all(Streams& streams) {
  for (const auto& each : streams) {
    if (const auto out = each->out.lock()) {
      out->close();
    }
  }
}

}  // namespace

live_viewers::live_viewers(live_run& run)
    : run_(run), thread_([this](const std::stop_token& stop) { work(stop); }) {}

live_viewers::~live_viewers() {
  thread_.request_stop();
  thread_.join();
  const std::lock_guard lock(mutex_);
  isEnding_ = true;
  close_all(events_);
  close_all(pictures_);
}

template <class Stream>
std::shared_ptr<web_stream> live_viewers::open(stream_list<Stream>& streams, std::shared_ptr<Stream> fresh) {
  auto out = std::make_shared<outbox>();
  fresh->out = out;
  const std::lock_guard lock(mutex_);
  drop_left(streams);
  if (isEnding_ || streams.size() >= kViewersMax) {
    return nullptr;
  }
  streams.push_back(std::move(fresh));
  wake_.notify_one();
  return out;
}

std::shared_ptr<web_stream> live_viewers::open_events(const std::string& viewer) {
  auto fresh = std::make_shared<event_stream>();
  fresh->viewer = viewer;
  return open(events_, std::move(fresh));
}

std::shared_ptr<web_stream> live_viewers::open_pictures(const std::string& viewer,
                                                        std::vector<camera_view> views) {
  auto fresh = std::make_shared<picture_stream>();
  fresh->viewer = viewer;
  fresh->wanted = std::move(views);
  return open(pictures_, std::move(fresh));
}

bool live_viewers::set_views(const std::string& viewer, std::vector<camera_view> views) {
  const std::lock_guard lock(mutex_);
  drop_left(pictures_);
  const auto found = std::find_if(pictures_.begin(), pictures_.end(), [&](const auto& each) {
    return !viewer.empty() && each->viewer == viewer;
  });
  if (found == pictures_.end()) {
    return false;
  }
  const std::lock_guard viewsLock((*found)->mutex);
  (*found)->wanted = std::move(views);
  return true;
}

void live_viewers::work(const std::stop_token& stop) {
  lower_priority();
  auto nextEvents = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    wake_.wait(lock, stop, [this] { return !events_.empty() || !pictures_.empty(); });
    drop_left(events_);
    drop_left(pictures_);
    try {
      currentEvents_ = events_;
      currentPictures_ = pictures_;
      lock.unlock();
      fill_pictures();
      if (const auto now = std::chrono::steady_clock::now(); now >= nextEvents) {
        nextEvents = now + kEventsEvery;
        fill_events();
      }
    } catch (const std::exception& error) {  // no memory, or no JPEG: the next round may have more luck
      LOG(2, "fail: viewers get nothing: %s", error.what());
    }
    if (!lock.owns_lock()) {
      lock.lock();
    }
    wake_.wait_for(lock, stop, kPicturesEvery, [] { return false; });
  }
}

void live_viewers::fill_events() {
  if (currentEvents_.empty()) {
    return;
  }
  const std::string cameras = event("cameras", cameras_json(run_.cameras()));
  for (const auto& stream : currentEvents_) {
    const auto out = stream->out.lock();
    if (out && out->is_empty()) {
      out->put(news_for(*stream, cameras));
    }
  }
}

std::string live_viewers::news_for(event_stream& stream, const std::string& cameras) {
  std::string news = cameras;
  const std::vector<tail_line> lines = run_.log().since(stream.lastLine);
  if (!lines.empty()) {
    stream.lastLine = lines.back().number;
    news += event("log", log_json(lines));
  }
  for (const auto& each : currentPictures_) {
    if (stream.viewer.empty() || each->viewer != stream.viewer) {
      continue;
    }
    for (const camera_view& view : each->views) {
      news += view.wantsDetails ? arrivals_for(stream.arrivals, view.serial) : "";
    }
  }
  return news;
}

std::string live_viewers::arrivals_for(known_arrivals& known, const std::string& serial) {
  const std::shared_ptr<preview_source> source = run_.preview(serial);
  if (!source) {
    return "";
  }
  const std::uint64_t nowUs = steady_us();
  const frame_arrivals fresh = source->arrivals_since(known[serial]);
  json times = json::array();
  json missed = json::array();
  for (const frame_arrival& each : fresh.all) {
    if (each.timeUs + kMinuteUs >= nowUs) {
      times.push_back(each.timeUs);
      missed.push_back(each.missed);
    }
  }
  known[serial] = fresh.from + fresh.all.size();
  const json data = {{"camera", serial},
                     {"from", known[serial] - times.size()},
                     {"now_us", nowUs},
                     {"times_us", times},
                     {"missed", missed}};
  return event("arrivals", data.dump(-1, ' ', false, json::error_handler_t::replace));
}

void live_viewers::fill_pictures() {
  picture_maker maker;
  for (const auto& stream : currentPictures_) {
    const auto out = stream->out.lock();
    if (!out || !out->is_empty()) {
      continue;
    }
    take_wanted_views(*stream);
    if (std::string next = next_picture(*stream, maker); !next.empty()) {
      out->put(std::move(next));
    }
  }
}

void live_viewers::take_wanted_views(picture_stream& stream) {
  const std::lock_guard lock(stream.mutex);
  if (stream.views != stream.wanted) {
    stream.views = stream.wanted;
    stream.numbers.assign(stream.views.size(), 0);  // another picture of the same frame is wanted
  }
}

// The cameras in view take turns. Copies are requested of all, so that there is a frame when the turn comes.
std::string live_viewers::next_picture(picture_stream& stream, picture_maker& maker) {
  std::string picture;
  const std::size_t first = stream.next;
  for (std::size_t step = 0; step < stream.views.size(); ++step) {
    const std::size_t at = (first + step) % stream.views.size();
    const shared_frame frame = fresh_frame(stream.views[at]);
    if (frame && picture.empty() && stream.numbers[at] != frame->number) {
      picture = maker.make(stream.views[at], *frame);
      stream.numbers[at] = frame->number;
      stream.next = at + 1;
    }
  }
  return picture;
}

shared_frame live_viewers::fresh_frame(const camera_view& view) {
  const std::shared_ptr<preview_source> source = run_.preview(view.serial);
  if (!source) {
    return nullptr;
  }
  source->request_copies();
  return source->newest();
}

}  // namespace host
