#include "platform/aravis/watch.h"

#include <chrono>
#include <string>

#include "platform/aravis/gvcp.h"

namespace gige {
namespace {

using std::chrono::milliseconds;

// A camera that died is noticed within a second: up to two intervals, then all attempts.
constexpr milliseconds lookInterval(200);
constexpr milliseconds patience(200);
constexpr int attempts = 3;

}  // namespace

watch::watch(std::shared_ptr<link> owner, gvcp_client client, std::uint16_t port,
             std::function<std::uint64_t()> arrivals)
    : link_(std::move(owner)),
      client_(std::move(client)),
      port_(port),
      arrivals_(std::move(arrivals)),
      thread_([this] { run(); }) {}

watch::~watch() {
  {
    const std::scoped_lock lock(mutex_);
    ended_ = true;
  }
  end_.notify_all();
  thread_.join();
}

void watch::run() {
  std::uint64_t seen = arrivals_();
  std::unique_lock lock(mutex_);
  while (!end_.wait_for(lock, lookInterval, [this] { return ended_; }) && !link_->lost()) {
    lock.unlock();
    const std::uint64_t now = arrivals_();
    if (now == seen) {
      look();
    }
    seen = now;
    lock.lock();
  }
}

void watch::look() {
  const auto control = client_.read(gvcp::controlRegister, patience, attempts);
  const bool held = (control.value & (gvcp::sharedControl | gvcp::exclusiveControl)) != 0;
  if (control.what == gvcp_client::outcome::silent) {
    link_->lose("it sends no frames and does not answer");
    return;
  }
  if (control.what == gvcp_client::outcome::value && !held) {
    link_->lose("control was taken away, nobody has it");
    return;
  }
  const auto port = client_.read(gvcp::streamPortRegister, patience, 1);
  if (port.what == gvcp_client::outcome::value && (port.value & 0xffffU) != port_) {
    link_->lose("control was taken away, its frames go to port " + std::to_string(port.value & 0xffffU));
  }
}

}  // namespace gige
