#include "platform/gige/control/connection_state.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "core/log.h"
#include "platform/gige/control/control_error.h"

namespace gige {
namespace {

descriptor make_eventfd() {
  descriptor made(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!made) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  return made;
}

}  // namespace

connection_state::connection_state(std::string camera)
    : camera_(std::move(camera)),
      wake_(make_eventfd()),
      deadline_(clock::time_point::max().time_since_epoch().count()) {}

void connection_state::lose(const std::string& why) {
  if (begin_end(why)) {
    LOG(1, "fail: camera %s is lost: %s", camera_.c_str(), why.c_str());
    end(condition::lost);
  }
}

void connection_state::cancel() {
  if (begin_end("waiting for it was cancelled")) {
    LOG(3, "done: waiting for camera %s cancelled", camera_.c_str());
    end(condition::cancelled);
  }
}

bool connection_state::begin_end(const std::string& why) {
  condition expected = condition::connected;
  const bool isFirst = condition_.compare_exchange_strong(expected, condition::ending);
  if (isFirst) {
    why_ = why;
  }
  return isFirst;
}

void connection_state::end(condition how) {
  condition_.store(how, std::memory_order_release);
  wake_waiters();
  const std::scoped_lock lock(handlerMutex_);
  call_handler();
}

void connection_state::hurry(std::chrono::milliseconds budget) {
  const clock::rep end = (clock::now() + budget).time_since_epoch().count();
  clock::rep before = deadline_.load();
  while (end < before && !deadline_.compare_exchange_weak(before, end)) {
  }
  wake_waiters();
}

void connection_state::raise_if_lost() const {
  const std::string text = is_lost() ? "camera " + camera_ + " is lost: " + why_ : "";
  if (is_cancelled()) {
    throw wait_cancelled(text);
  }
  if (is_lost()) {
    throw camera_lost(text);
  }
}

connection_state::clock::time_point connection_state::deadline() const {
  return clock::time_point(clock::duration(deadline_.load()));
}

void connection_state::on_loss(std::function<void()> handler) {
  const std::scoped_lock lock(handlerMutex_);
  lossHandler_ = std::move(handler);
  if (is_lost()) {
    call_handler();
  }
}

void connection_state::call_handler() {
  if (const auto handler = std::exchange(lossHandler_, nullptr)) {
    handler();
  }
}

void connection_state::wake_waiters() const {
  eventfd_write(wake_.get(), 1);
}

}  // namespace gige
