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

constexpr auto kPicturesEvery = 25ms;  // how long a new frame waits to be seen, at most
constexpr auto kEventsEvery = 500ms;
constexpr std::uint64_t kMinuteUs = 60'000'000;
constexpr std::uint64_t kFrameAgeMaxUs = 3'000'000;  // what is older is no live picture

std::string event(const char* name, const std::string& data) {
  return fmt::format("event: {}\ndata: {}\n\n", name, data);
}

// Of the streams, those that nobody reads any more.
template <class Streams>
void drop_gone(Streams& streams) {
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
  drop_gone(streams);
  if (isEnding_ || streams.size() >= kViewersMax) {
    return nullptr;
  }
  streams.push_back(std::move(fresh));
  wake_.notify_one();
  return out;
}

std::shared_ptr<web_stream> live_viewers::open_events(const std::string& viewer) {
  auto fresh = std::make_shared<events>();
  fresh->viewer = viewer;
  return open(events_, std::move(fresh));
}

std::shared_ptr<web_stream> live_viewers::open_pictures(const std::string& viewer,
                                                        std::vector<camera_view> views) {
  auto fresh = std::make_shared<pictures>();
  fresh->viewer = viewer;
  fresh->views = std::move(views);
  return open(pictures_, std::move(fresh));
}

bool live_viewers::set_views(const std::string& viewer, std::vector<camera_view> views) {
  const std::lock_guard lock(mutex_);
  drop_gone(pictures_);
  const auto found = std::find_if(pictures_.begin(), pictures_.end(), [&](const auto& each) {
    return !viewer.empty() && each->viewer == viewer;
  });
  if (found == pictures_.end()) {
    return false;
  }
  const std::lock_guard viewsLock((*found)->mutex);
  (*found)->views = std::move(views);
  return true;
}

void live_viewers::work(const std::stop_token& stop) {
  lower_priority();
  auto nextEvents = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    wake_.wait(lock, stop, [this] { return !events_.empty() || !pictures_.empty(); });
    drop_gone(events_);
    drop_gone(pictures_);
    const stream_list<events> listening = events_;
    const stream_list<pictures> looking = pictures_;
    lock.unlock();
    try {
      fill_pictures(looking);
      if (const auto now = std::chrono::steady_clock::now(); now >= nextEvents) {
        nextEvents = now + kEventsEvery;
        fill_events(listening, looking);
      }
    } catch (const std::exception& error) {  // no memory, or no JPEG: the next round may have more luck
      LOG(2, "fail: viewers get nothing: %s", error.what());
    }
    lock.lock();
    wake_.wait_for(lock, stop, kPicturesEvery, [] { return false; });
  }
}

void live_viewers::fill_events(const stream_list<events>& all, const stream_list<pictures>& looking) {
  if (all.empty()) {
    return;
  }
  const std::string cameras = event("cameras", cameras_json(run_.cameras()));
  for (const auto& viewer : all) {
    const auto out = viewer->out.lock();
    if (out && out->is_empty()) {
      out->put(news_for(*viewer, cameras, looking));
    }
  }
}

std::string live_viewers::news_for(events& viewer, const std::string& cameras,
                                   const stream_list<pictures>& looking) {
  std::string news = cameras;
  const std::vector<tail_line> lines = run_.log().since(viewer.logged);
  if (!lines.empty()) {
    viewer.logged = lines.back().number;
    news += event("log", log_json(lines));
  }
  for (const auto& each : looking) {
    if (viewer.viewer.empty() || each->viewer != viewer.viewer) {
      continue;
    }
    for (const camera_view& view : each->seen) {
      news += view.wantsDetails ? arrivals_for(viewer.arrivals, view.serial) : "";
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

void live_viewers::fill_pictures(const stream_list<pictures>& all) {
  picture_maker maker;
  for (const auto& viewer : all) {
    const auto out = viewer->out.lock();
    if (!out || !out->is_empty()) {
      continue;
    }
    if (std::string next = next_picture(*viewer, maker); !next.empty()) {
      out->put(std::move(next));
    }
  }
}

// The cameras in view take turns. All are watched, so that there is a frame when the turn comes.
std::string live_viewers::next_picture(pictures& viewer, picture_maker& maker) {
  {
    const std::lock_guard lock(viewer.mutex);
    if (viewer.seen != viewer.views) {
      viewer.seen = viewer.views;
      viewer.sent.assign(viewer.seen.size(), 0);  // what is wanted now is another picture of the same frame
    }
  }
  std::string made;
  const std::size_t first = viewer.next;
  for (std::size_t step = 0; step < viewer.seen.size(); ++step) {
    const std::size_t at = (first + step) % viewer.seen.size();
    const shared_frame frame = fresh_frame(viewer.seen[at]);
    if (frame && made.empty() && viewer.sent[at] != frame->number) {
      made = maker.make(viewer.seen[at], *frame);
      viewer.sent[at] = frame->number;
      viewer.next = at + 1;
    }
  }
  return made;
}

shared_frame live_viewers::fresh_frame(const camera_view& view) {
  const std::shared_ptr<preview_source> source = run_.preview(view.serial);
  if (!source) {
    return nullptr;
  }
  source->watch();
  return source->newest(kFrameAgeMaxUs);
}

}  // namespace host
