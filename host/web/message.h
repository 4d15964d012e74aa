// A request and its answer, without a socket.
#ifndef HOST_WEB_MESSAGE_H
#define HOST_WEB_MESSAGE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace host {

struct web_request {
  std::string method;  ///< "GET", "POST"
  std::string path;    ///< decoded, without the query
  std::map<std::string, std::string, std::less<>> query;
  std::map<std::string, std::string, std::less<>> headers;  ///< names in lower case
  std::string body;
  std::string peer;  ///< address of the client

  /// A header's value; empty when it is not there.
  std::string header(std::string_view name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
  }
  /// A parameter of the query; empty when it is not there.
  std::string parameter(std::string_view name) const {
    const auto found = query.find(name);
    return found == query.end() ? "" : found->second;
  }
};

enum class stream_state : std::uint8_t {
  open,
  over,   ///< all was read, and nothing more comes
  broken  ///< it ended before it was whole, which the reader learns
};

/// A body that goes on until its maker ends it, or its reader leaves and the server drops it. The server
/// reads it whenever the connection takes more, so that a slow reader holds up only itself.
class web_stream {
 public:
  virtual ~web_stream() = default;
  /// Writes what there is, as far as it fits, and gives the number of bytes; 0: nothing at the moment. On the
  /// server's thread; must not wait.
  virtual std::size_t read(std::span<char> to) = 0;
  virtual stream_state state() const = 0;
  /// `wake` is called, on any thread, when there is something to read again after `read` gave 0, and when the
  /// stream ends. Empty: nobody is to be woken any more; returns when no call of it is under way.
  virtual void on_data(std::function<void()> wake) = 0;
};

struct web_answer {
  int status = 200;
  std::string type = "application/json";
  std::string body = {};
  std::vector<std::pair<std::string, std::string>> headers = {};
  std::shared_ptr<web_stream> stream = nullptr;  ///< in place of `body`
};

}  // namespace host

#endif
