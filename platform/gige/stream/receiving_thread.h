// The thread of a stream: packets in, frames to the queue, requests to the camera.
#ifndef PLATFORM_GIGE_STREAM_RECEIVING_THREAD_H
#define PLATFORM_GIGE_STREAM_RECEIVING_THREAD_H

#include <atomic>
#include <memory>
#include <thread>

#include "platform/gige/control/descriptor.h"
#include "platform/gige/stream/frame_assembler.h"
#include "platform/gige/stream/frame_queue.h"
#include "platform/gige/stream/frame_stream.h"
#include "platform/gige/stream/packet_receiver.h"
#include "platform/gige/stream/resend_channel.h"
#include "platform/gige/stream/stream_health.h"
#include "platform/gige/stream/stream_socket.h"

namespace gige {

// The thread runs from `start` to `stop`. All functions are called from one other thread at a time.
class receiving_thread final : private frame_owner {
 public:
  // Makes the receiver that the setup chooses and the system allows. The references must outlive it.
  // Raises std::invalid_argument and std::system_error, as frame_stream::prepare says.
  receiving_thread(const stream_setup& setup, stream_socket& socket, frame_queue& queue,
                   stream_health& health);
  receiving_thread(const receiving_thread&) = delete;
  receiving_thread& operator=(const receiving_thread&) = delete;
  ~receiving_thread();

  camera_extension_transport transport() const { return transport_; }
  // Of the socket or the ring, bytes.
  std::uint32_t buffer_requested() const { return bufferRequested_; }
  std::uint32_t buffer_granted() const { return bufferGranted_; }

  // Drops packets that arrived earlier and begins to receive. Raises std::system_error when the system
  // refuses a thread.
  void start();
  // Ends the thread at once, however many packets arrive.
  void stop();

 private:
  void make_receiver(const assembly_setup& setup);
  void make_ring(const assembly_setup& setup);

  void run();
  void set_up_thread() const;
  void count();
  GEV_BUFFER_OBJECT buffer_object(const ended_frame& frame) const;

  std::uint8_t* lend() override { return queue_.lend(); }
  void take_back(std::uint8_t* place) override { queue_.take_back(place); }
  void end(const ended_frame& frame) override;
  void request(const packet_range& packets) override { resends_.send(packets); }

  const stream_setup setup_;
  stream_socket& socket_;
  frame_queue& queue_;
  stream_health& health_;
  resend_channel resends_;
  frame_assembler assembler_;
  std::unique_ptr<packet_receiver> receiver_;
  camera_extension_transport transport_ = camera_extension_udp;
  std::uint32_t bufferRequested_ = 0;
  std::uint32_t bufferGranted_ = 0;

  bool refusalIsLogged_ = false;  // in this transfer
  std::uint32_t foreignSeen_ = 0;
  std::uint64_t foreign_ = 0;

  const descriptor stopEvent_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace gige

#endif
