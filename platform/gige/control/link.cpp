#include "platform/gige/control/link.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "core/log.h"
#include "platform/gige/control/control_error.h"

namespace gige {
namespace {

descriptor new_event() {
  descriptor made(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!made) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  return made;
}

}  // namespace

link::link(std::string camera)
    : camera_(std::move(camera)),
      event_(new_event()),
      latest_(clock::time_point::max().time_since_epoch().count()) {}

void link::lose(const std::string& why) {
  if (begin_ending(why)) {
    LOG(1, "fail: camera %s is lost: %s", camera_.c_str(), why.c_str());
    end(state::lost);
  }
}

void link::cancel() {
  if (begin_ending("waiting for it was cancelled")) {
    LOG(3, "done: waiting for camera %s cancelled", camera_.c_str());
    end(state::cancelled);
  }
}

bool link::begin_ending(const std::string& why) {
  state expected = state::up;
  const bool first = state_.compare_exchange_strong(expected, state::ending);
  if (first) {
    why_ = why;
  }
  return first;
}

void link::end(state how) {
  state_.store(how, std::memory_order_release);
  wake_waiters();
  const std::scoped_lock lock(telling_);
  tell();
}

void link::hurry(std::chrono::milliseconds budget) {
  const clock::rep end = (clock::now() + budget).time_since_epoch().count();
  clock::rep before = latest_.load();
  while (end < before && !latest_.compare_exchange_weak(before, end)) {
  }
  wake_waiters();
}

void link::check() const {
  const std::string text = lost() ? "camera " + camera_ + " is lost: " + why_ : "";
  if (cancelled()) {
    throw wait_cancelled(text);
  }
  if (lost()) {
    throw camera_lost(text);
  }
}

link::clock::time_point link::latest() const {
  return clock::time_point(clock::duration(latest_.load()));
}

void link::on_loss(std::function<void()> told) {
  const std::scoped_lock lock(telling_);
  told_ = std::move(told);
  if (lost()) {
    tell();
  }
}

void link::tell() {
  if (const auto told = std::exchange(told_, nullptr)) {
    told();
  }
}

void link::wake_waiters() const {
  eventfd_write(event_.get(), 1);
}

}  // namespace gige
