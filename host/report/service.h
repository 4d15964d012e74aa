// What the program tells systemd when it runs as a service; without systemd nothing happens.
#ifndef HOST_REPORT_SERVICE_H
#define HOST_REPORT_SERVICE_H

#include <cstdint>
#include <string>

namespace host {

/// Used by one thread.
class service_notifier {
 public:
  service_notifier();

  /// Whether systemd started the program and listens to it.
  static bool is_service();

  /// READY=1, the first time.
  void ready();
  /// WATCHDOG=1, at most as often as half the watchdog's time asks for; calls `isAlive` only then: whether
  /// cameras have done something since the last call.
  template <class IsAlive>
  void watchdog(std::uint64_t nowUs, IsAlive isAlive) {
    if (watchdogUs_ == 0 || nowUs < nextWatchdogUs_) {
      return;
    }
    if (isAlive()) {
      nextWatchdogUs_ = nowUs + watchdogUs_ / 2;
      notify("WATCHDOG=1");
    }
  }
  /// STATUS=.
  static void status(const std::string& text) { notify("STATUS=" + text); }
  /// RELOADING=1, and READY=1 when it is over.
  static void reloading();
  static void reloaded() { notify("READY=1"); }
  static void stopping() { notify("STOPPING=1"); }

 private:
  static void notify(const std::string& state);

  std::uint64_t watchdogUs_ = 0;  // 0: systemd does not watch
  std::uint64_t nextWatchdogUs_ = 0;
  bool isReady_ = false;
};

}  // namespace host

#endif
