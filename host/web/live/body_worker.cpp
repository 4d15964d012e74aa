#include "host/web/live/body_worker.h"

#include <sys/resource.h>
#include <unistd.h>

#include <exception>
#include <utility>

#include "core/log.h"

namespace host {
namespace {

constexpr int kNice = 10;

}  // namespace

void lower_priority() {
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);  // raising the niceness is always allowed
}

body_worker::body_worker() : thread_([this](const std::stop_token& stop) { work(stop); }) {}

body_worker::~body_worker() {
  thread_.request_stop();
  thread_.join();
  for (const job& each : jobs_) {
    if (const auto out = each.out.lock()) {
      out->abort();
    }
  }
}

std::shared_ptr<web_stream> body_worker::start(std::function<std::string()> make) {
  const std::lock_guard lock(mutex_);
  make_room();
  if (bodies_.size() >= kBodiesMax) {
    return nullptr;
  }
  auto out = std::make_shared<outbox>();
  bodies_.push_back({out, std::chrono::steady_clock::now()});
  jobs_.push_back({out, std::move(make)});
  wake_.notify_one();
  return out;
}

void body_worker::make_room() {
  const auto oldest = std::chrono::steady_clock::now() - kReadLongest;
  std::erase_if(bodies_, [=](const body& each) {
    const auto out = each.out.lock();
    if (out && each.started < oldest) {
      out->abort();
    }
    return !out || each.started < oldest;
  });
}

void body_worker::work(const std::stop_token& stop) {
  lower_priority();
  std::unique_lock lock(mutex_);
  while (wake_.wait(lock, stop, [this] { return !jobs_.empty(); }) && !stop.stop_requested()) {
    const job next = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    if (const auto out = next.out.lock()) {
      try {
        out->put(next.make());
        out->close();
      } catch (const std::exception& error) {
        LOG(2, "fail: the body of a web answer is not made: %s", error.what());
        out->abort();
      }
    }
    lock.lock();
  }
}

}  // namespace host
