// A network that only the test has.
#ifndef TESTS_OWN_NETWORK_H
#define TESTS_OWN_NETWORK_H

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace test {

// Moves the calling thread, and those that it starts from then on, into a network namespace with a loopback
// interface, which has all addresses of 127.0.0.0/8. Once for a process. False where that is refused.
inline bool enter_own_network() {
  if (unshare(CLONE_NEWNET) != 0) {
    return false;
  }
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP;
  const int any = socket(AF_INET, SOCK_DGRAM, 0);
  const bool isUp = ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
  close(any);
  return isUp;
}

}  // namespace test

#endif
