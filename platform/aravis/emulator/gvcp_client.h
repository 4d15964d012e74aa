// A client of one camera's control port, for what can only be had from outside.
#ifndef PLATFORM_ARAVIS_EMULATOR_GVCP_CLIENT_H
#define PLATFORM_ARAVIS_EMULATOR_GVCP_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace gvcam {

// Whether the control port of that address (IPv4, dotted) can be bound; the text says why not, and is
// empty when it can.
std::string control_port_obstacle(const std::string& address);

// Not to be used from several threads at once. Each call waits for the answer, a second at most.
class gvcp_client {
 public:
  // Of the camera at that address (IPv4, dotted, of this machine). Raises std::system_error when there is
  // no socket to be had.
  explicit gvcp_client(const std::string& address);
  ~gvcp_client();
  gvcp_client(const gvcp_client&) = delete;
  gvcp_client& operator=(const gvcp_client&) = delete;

  // The serial number that answers a discovery, empty when none does.
  std::string discover();
  // Whether it was answered. The camera looks at its clients' heartbeats whenever it is asked anything.
  bool read_register(std::uint32_t at);
  // Whether it was done; a camera that somebody else controls does not answer.
  bool write_register(std::uint32_t at, std::uint32_t value);

 private:
  // The answer with its head, empty when none came.
  std::string ask(std::uint16_t command, const std::vector<std::uint32_t>& words);

  int socket_;
  std::uint16_t lastId_ = 0;
};

}  // namespace gvcam

#endif
