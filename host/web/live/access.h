// Who may see and who may change what is served: a secret, the names that this server answers to, and the
// sizes that it takes.
#ifndef HOST_WEB_LIVE_ACCESS_H
#define HOST_WEB_LIVE_ACCESS_H

#include <optional>
#include <string>
#include <vector>

#include "host/web/message.h"

namespace host {

/// What a path needs. The page's own files are open, as they contain nothing of the installation. Without the
/// token the page says that it needs one.
enum class access_need : std::uint8_t {
  open,
  look,   ///< says something about the cameras
  change  ///< changes a setting of a camera
};

/// Why a request is refused: its status, and the reason for people.
struct access_refusal {
  int status = 0;
  std::string reason;
};

struct access_settings {
  std::string token;               ///< the secret; never empty
  std::vector<std::string> hosts;  ///< that may stand in "Host", without a port, in lower case
  bool isLoopback = true;          ///< only this machine reaches the server: looking needs no token
  bool isTls = false;
  bool isReadOnly = false;  ///< nobody may change anything
};

/// Decides by the request alone; on any thread.
///
/// Looking needs the token. On loopback it needs the token or a "Host" of `hosts`: a foreign page could else
/// read cameras through a name of its own that points to this machine.
///
/// Changing needs the token, a "Host" of `hosts`, no "Origin" but this server's own, and a body of JSON.
/// Browsers always send an "Origin", programs none.
class access_rules {
 public:
  static constexpr std::size_t kBodyMax = 8192;  ///< bytes of a request

  explicit access_rules(access_settings settings) : settings_(std::move(settings)) {}

  /// None when the request is allowed.
  std::optional<access_refusal> refuse(const web_request& request, access_need need) const;
  /// Why the sender of this request may only look, as a text for the page; empty when changes are allowed.
  std::string look_only_reason(const web_request& request) const;

 private:
  bool has_token(const web_request& request) const;
  bool is_known_host(const web_request& request) const;
  std::optional<access_refusal> refuse_change(const web_request& request) const;

  access_settings settings_;
};

/// 32 random characters from the system: letters, digits, "-" and "_".
std::string random_token();

/// The secret in a file, without white space around it. std::runtime_error when the file can't be read, is
/// longer than 4096 bytes, or has no secret of 16 to 256 letters, digits, "-", "_", "." or "~" in it.
std::string token_of_file(const std::string& path);

/// What may stand in "Host": the addresses that the server listens on (all of this machine for "0.0.0.0" and
/// "::"), this machine's name, and `more`.
std::vector<std::string> host_names(const std::string& address, const std::vector<std::string>& more);

/// Whether only this machine reaches a server at that address.
bool is_loopback(const std::string& address);

}  // namespace host

#endif
