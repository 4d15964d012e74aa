// The frames of a camera on their way from the network to the consumer.
#ifndef PLATFORM_GIGE_STREAM_FRAME_STREAM_H
#define PLATFORM_GIGE_STREAM_FRAME_STREAM_H

#include <camera_extension.h>
#include <gevapi.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace gige {

// Which kind of socket receives. A packet ring costs less processor time and needs CAP_NET_RAW.
enum class transport_choice { automatic, udp, packet_ring };

// What a transfer is set up with. Addresses are IPv4 in host byte order, sizes are bytes.
struct stream_setup {
  std::string camera{};  // serial number, for log lines
  std::uint32_t ownAddress = 0;
  std::uint32_t cameraAddress = 0;
  std::uint16_t sourcePort = 0;  // that the camera sends from; 0: that of its first packet
  transport_choice transport = transport_choice::automatic;
  // Of the socket, or of the packet ring, as requested of the system; 0: chosen by the size of the frames.
  std::uint32_t socketBufferBytes = 0;

  std::uint32_t payloadBytes = 0;  // of one frame, with chunks; at least what its pixels take
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t pixelFormat = 0;     // GigE Vision code
  std::uint32_t packetBytes = 0;     // with IP and UDP headers, as the camera's register has it
  bool extendedIds = false;          // 64-bit block ids, 32-bit packet ids
  std::uint64_t ticksPerSecond = 0;  // of the camera's clock; 0: ticks are nanoseconds

  bool cameraResends = false;          // it announces PACKETRESEND
  std::uint32_t maxPacketResends = 0;  // packets of one frame that are requested again
  std::uint32_t packetResendMs = 0;    // longest wait for a requested packet before the next request
  std::uint32_t frameTimeoutMs = 0;    // from a frame's first packet until it is given up

  std::uint32_t framesBuffered = 0;    // whole frames held for a late consumer; at least 1
  std::uint64_t memoryLimitBytes = 0;  // of all buffers together

  std::uint32_t threadAffinity = 0;  // processor of the receiving thread plus 1; 0: any
  std::uint32_t threadPriority = 0;  // real-time priority of the receiving thread; 0: none

  bool operator==(const stream_setup&) const = default;
};

// Has the camera send one test packet of that size (headers included, do not fragment) to the stream's port,
// and returns the size that the camera's register settled on; 0 when the camera refuses.
using fire_test_packet = std::function<std::uint32_t(std::uint32_t size)>;

// A stream is prepared (sockets, buffers), opened and closed for each transfer, and cleared. A thread of its
// own receives from `open` to `close`, so that lost packets are requested again while the consumer is busy.
//
// Threads: `wait`, `release`, `close`, `lose`, `running`, `arrivals` and `read_health` may be called from any
// thread at any time. `prepare`, `find_packet_size`, `open` and `clear` come from one thread at a time, and
// not while one of the others is in `close`.
class frame_stream {
 public:
  frame_stream();
  frame_stream(const frame_stream&) = delete;
  frame_stream& operator=(const frame_stream&) = delete;
  // As `clear`.
  ~frame_stream();

  // Makes the sockets, the ring and the buffers. Keeps what exists and fits, the port included, so that a
  // second call with the same setup costs nothing. Delivered frames stay valid if payloadBytes,
  // framesBuffered and memoryLimitBytes have not changed. Logs what the system granted: the socket and its
  // buffer, packet size, number of buffers.
  //
  // Not to be called while a transfer runs. Raises, after a line in the log,
  //   std::invalid_argument  a setup that cannot be: pixels that do not fit into payloadBytes, a packet
  //                          without room for payload; the text names the value and what would be right
  //   std::bad_alloc         framesBuffered frames exceed memoryLimitBytes, or the machine
  //   std::system_error      the system refuses a socket, or a packet ring that the setup demands
  // and leaves the stream as it was before the first `prepare`.
  void prepare(const stream_setup& setup);
  bool prepared() const;
  // The UDP port of `ownAddress` that the camera is to send to. Valid after `prepare`.
  std::uint16_t port() const;

  // Finds the largest packet that the path carries, with test packets of decreasing size that begin with
  // `requested` (0: the largest size that exists). Calls `fire` for each of them on this thread. Returns
  // `requested` when no test packet arrives at all (for 0: 1500, which every network carries). Logs the
  // result. Takes as long as `fire` when the first packet arrives, and 0.3 s at worst; ends early when the
  // camera refuses.
  //
  // To be called between `prepare` and `open`, when the camera knows the port. The caller writes the size to
  // the camera and prepares the stream again.
  std::uint32_t find_packet_size(std::uint32_t requested, const fire_test_packet& fire);

  // Begins to receive; the camera is to send from now on. Packets that arrived earlier are dropped. At most
  // `frames` frames, whole or not, are handed over. Raises std::system_error when the system refuses a
  // thread.
  void open(std::uint64_t frames);
  bool running() const;
  // Ends all waits at once and the receiving thread within 0.1 s, and logs the figures of the transfer.
  // Buffers and delivered frames stay valid. Does nothing when no transfer runs.
  void close();
  // The camera is lost for good. Ends all waits at once. The caller logs the reason first.
  void lose();
  // Closes the stream and frees sockets and buffers. Delivered frames become invalid.
  void clear();

  // Waits for the next frame, as GevWaitForNextFrame does. An incomplete frame, or one of another geometry
  // than the setup's, is delivered once, without data. Its status is FRAME_INCOMPLETE, which is returned as
  // well.
  //   GEVLIB_OK, GEVLIB_ERROR_FRAME_INCOMPLETE  *frame is set, and to be released
  //   GEVLIB_ERROR_TIME_OUT                     none came; at once for a time-out of 0
  //   GEVLIB_ERROR_ABORTED                      the transfer was closed during the wait
  //   GEVLIB_ERROR_DEVICE_LOST                  at once; each further wait returns it after 0.1 s
  // *frame is null for the last three.
  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs);
  // Gives a delivered frame back. PARAMETER_INVALID if the frame was not delivered, or was given back before.
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame);

  // Frames that have arrived since the stream was made, whole or not. Rises as long as the camera sends.
  std::uint64_t arrivals() const;
  // Sets every field of the record but `size`. Counters rise over all transfers of this object, and over
  // `clear`. Does not block, and does not hold up the receiver.
  void read_health(camera_extension_health_record& record) const;

 private:
  struct parts;
  const std::unique_ptr<parts> parts_;
};

}  // namespace gige

#endif
