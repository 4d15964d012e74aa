// The frames of a camera on their way from the network to the consumer.
#ifndef PLATFORM_ARAVIS_FRAME_STREAM_H
#define PLATFORM_ARAVIS_FRAME_STREAM_H

#include <gevapi.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/aravis/environment.h"
#include "platform/aravis/frame_memory.h"
#include "platform/aravis/glib.h"
#include "platform/aravis/link.h"

namespace gige {

// What a transfer is set up with; a change of any of it needs new buffers or a new stream.
struct stream_setup {
  std::uint32_t bufferCount = 0;
  std::uint32_t payloadBytes = 0;  // of one frame, with chunks
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t packetBytes = 0;
  std::uint32_t socketBufferBytes = 0;
  std::uint32_t maxPacketResends = 0;
  std::uint32_t packetResendMs = 0;
  std::uint32_t frameTimeoutMs = 0;
  std::uint32_t threadAffinity = 0;
  std::uint32_t threadPriority = 0;
  std::uint64_t ticksPerSecond = 0;
  packet_socket_use packetSocket = packet_socket_use::automatic;
  bool operator==(const stream_setup&) const = default;
};

// Frames are handed over where Aravis received them. `wait` and `close` may run beside each other;
// everything else comes from one thread at a time.
class frame_stream {
 public:
  explicit frame_stream(std::shared_ptr<link> owner) : link_(std::move(owner)) {}
  frame_stream(const frame_stream&) = delete;
  frame_stream& operator=(const frame_stream&) = delete;
  ~frame_stream();

  // Makes the stream and its buffers, if those from before do not fit, and tells whether it did; frames that
  // are out stay out. Says in the log which socket and which buffer was granted. Raises std::bad_alloc, or
  // RuntimeException when the camera or the network refuses. Afterwards the receiver runs, for the camera to
  // be told to send.
  bool prepare(ArvDevice& camera, const stream_setup& setup);
  // Lets the waits have frames, so many at most.
  void open(std::uint64_t frames);
  // Ends the waits, at once; what comes from here on is for nobody.
  void close();
  // Says in the log how the transfer went.
  void tell_statistics();
  // Frees stream and buffers, quickly also when the camera is lost.
  void clear();

  bool running() const;
  bool prepared() const { return stream_ != nullptr; }
  // The port that the camera sends to.
  std::uint16_t port() const;
  // Frames that have come in, whole or not.
  std::uint64_t arrivals() const { return arrivals_->load(std::memory_order_relaxed); }

  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs);
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame);

 private:
  struct slot {
    GEV_BUFFER_OBJECT frame{};
    std::uint8_t* pixels = nullptr;
    owned<ArvBuffer> buffer;
    bool out = false;  // with the consumer
  };

  void make_stream(ArvDevice& camera);
  bool can_go_on() const;
  void restart_receiver();
  void give_all_back();
  void tell_what_was_granted(bool packetSocket) const;
  void make_buffers();
  void give_back(slot& to);

  GEV_STATUS deliver(ArvBuffer* buffer, GEV_BUFFER_OBJECT** frame);
  bool is_whole(ArvBuffer* buffer) const;
  void describe(slot& in) const;
  void count_gap(std::uint64_t id);

  const std::shared_ptr<link> link_;
  stream_setup setup_;
  owned<ArvStream> stream_;
  frame_memory pixels_;
  std::vector<slot> slots_;
  std::shared_ptr<std::atomic<std::uint64_t>> arrivals_ = std::make_shared<std::atomic<std::uint64_t>>(0);

  // Under the link's lock.
  bool running_ = false;
  std::uint64_t stops_ = 0;
  std::uint64_t framesLeft_ = 0;
  bool lossTold_ = false;

  // Of the running transfer, told when it ends.
  std::uint64_t whole_ = 0;
  std::uint64_t broken_ = 0;
  std::uint64_t missing_ = 0;
  std::uint64_t lastId_ = 0;
  std::uint64_t brokenBefore_ = 0;  // frames before the last whole one

  std::uint64_t lateBefore_ = 0;  // packets without a buffer, of earlier transfers
};

}  // namespace gige

#endif
