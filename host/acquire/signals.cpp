#include "host/acquire/signals.h"

#include <algorithm>
#include <csignal>
#include <ctime>

namespace host {
namespace {

sigset_t held_signals() {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&held, signal);
  }
  return held;
}

}  // namespace

void hold_signals() {
  const sigset_t held = held_signals();
  pthread_sigmask(SIG_BLOCK, &held, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

int wait_signal(std::chrono::milliseconds longest) {
  const sigset_t held = held_signals();
  const timespec wait{longest.count() / 1000, longest.count() % 1000 * 1'000'000};
  return std::max(sigtimedwait(&held, nullptr, &wait), 0);
}

}  // namespace host
