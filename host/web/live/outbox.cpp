#include "host/web/live/outbox.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace host {

std::size_t outbox::read(std::span<char> to) {
  const std::lock_guard lock(mutex_);
  const std::size_t size = std::min(to.size(), text_.size() - read_);
  std::memcpy(to.data(), text_.data() + read_, size);
  read_ += size;
  return size;
}

stream_state outbox::state() const {
  const std::lock_guard lock(mutex_);
  return read_ == text_.size() ? end_ : stream_state::open;
}

void outbox::on_data(std::function<void()> wake) {
  const std::lock_guard lock(mutex_);
  wake_ = std::move(wake);
}

bool outbox::is_empty() const {
  const std::lock_guard lock(mutex_);
  return read_ == text_.size();
}

void outbox::put(std::string text) {
  const std::lock_guard lock(mutex_);
  text_ = std::move(text);
  read_ = 0;
  if (wake_) {
    wake_();
  }
}

void outbox::close() {
  end(stream_state::over);
}

void outbox::abort() {
  put({});
  end(stream_state::broken);
}

void outbox::end(stream_state state) {
  const std::lock_guard lock(mutex_);
  end_ = state;
  if (wake_) {
    wake_();
  }
}

}  // namespace host
