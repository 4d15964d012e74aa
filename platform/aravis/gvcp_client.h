// Asks one camera for registers beside Aravis, with patience of our own choice.
#ifndef PLATFORM_ARAVIS_GVCP_CLIENT_H
#define PLATFORM_ARAVIS_GVCP_CLIENT_H

#include <chrono>
#include <cstdint>

#include "platform/aravis/descriptor.h"

namespace gige {

// Aravis waits 2.5 s for a camera that is gone; whether one is there has to be known sooner. A client that
// only reads needs no control of the camera, and does not keep it either. One thread at a time.
class gvcp_client {
 public:
  // Addresses in host byte order; our own may be 0, then the routes decide.
  gvcp_client(std::uint32_t ownAddress, std::uint32_t cameraAddress);

  // Where the camera sees us, host byte order; 0 when no route leads there.
  std::uint32_t own_address() const;

  enum class outcome { value, refused, silent };
  struct answer {
    outcome what = outcome::silent;
    std::uint32_t value = 0;
  };
  // Asks up to `attempts` times and waits for so long each time.
  answer read(std::uint32_t registerAddress, std::chrono::milliseconds patience, int attempts);

 private:
  answer await(std::uint16_t id, std::chrono::milliseconds patience);

  descriptor socket_;
  std::uint16_t lastId_ = 0;
};

}  // namespace gige

#endif
