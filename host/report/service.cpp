#include "host/report/service.h"

#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <string>

#include "host/acquire/steady_time.h"

namespace host {

service_notifier::service_notifier() {
  if (sd_watchdog_enabled(0, &watchdogUs_) <= 0) {
    watchdogUs_ = 0;
  }
}

bool service_notifier::is_service() {
  return std::getenv("NOTIFY_SOCKET") != nullptr;
}

void service_notifier::ready() {
  if (!isReady_) {
    isReady_ = true;
    notify("READY=1");
  }
}

void service_notifier::reloading() {
  notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(steady_us()));
}

void service_notifier::notify(const std::string& state) {
  sd_notify(0, state.c_str());
}

}  // namespace host
