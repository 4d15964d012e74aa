// What waits to be sent over one connection.
#ifndef HOST_WEB_LIVE_OUTBOX_H
#define HOST_WEB_LIVE_OUTBOX_H

#include <functional>
#include <mutex>
#include <span>
#include <string>

#include "host/web/message.h"

namespace host {

/// A stream that is filled on one thread and read on another. Its owner fills it only while it is empty, so
/// that a slow reader gets fewer texts, and the newest.
class outbox final : public web_stream {
 public:
  std::size_t read(std::span<char> to) override;
  stream_state state() const override;
  void on_data(std::function<void()> wake) override;

  /// Whether all was read.
  bool is_empty() const;
  /// Replaces what was put before.
  void put(std::string text);
  /// Nothing more comes. What was put can still be read.
  void close();
  /// Ends the stream before it is whole. What was put is gone.
  void abort();

 private:
  void end(stream_state state);

  mutable std::mutex mutex_;
  std::string text_;
  std::size_t read_ = 0;  // bytes of `text_`
  stream_state end_ = stream_state::open;
  std::function<void()> wake_;
};

}  // namespace host

#endif
