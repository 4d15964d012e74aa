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

// Which kind of socket receives. A packet ring costs the process less, and needs CAP_NET_RAW.
enum class transport_choice { automatic, udp, packet_ring };

// What a transfer is set up with. Addresses are IPv4 in host byte order, sizes are bytes.
struct stream_setup {
  std::string camera{};  // serial number, for log lines
  std::uint32_t ownAddress = 0;
  std::uint32_t cameraAddress = 0;
  std::uint16_t sourcePort = 0;  // that the camera sends from; 0: that of its first packet
  transport_choice transport = transport_choice::automatic;
  std::uint32_t socketBufferBytes =
      0;  // asked of the system; the ring's with a packet ring; 0: by the frames

  std::uint32_t payloadBytes = 0;  // of one frame, with chunks; at least what its pixels take
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t pixelFormat = 0;     // GigE Vision code
  std::uint32_t packetBytes = 0;     // with IP and UDP headers, as the camera's register has it
  bool extendedIds = false;          // 64-bit block ids, 32-bit packet ids
  std::uint64_t ticksPerSecond = 0;  // of the camera's clock; 0: ticks are nanoseconds

  bool cameraResends = false;          // it announces PACKETRESEND
  std::uint32_t maxPacketResends = 0;  // packets of one frame that are asked for again
  std::uint32_t packetResendMs = 0;  // wait for a packet that was asked for, until it is asked for once more
  std::uint32_t frameTimeoutMs = 0;  // a frame not complete after so long is given up

  std::uint32_t framesBuffered = 0;    // whole frames held for a late consumer; at least 1
  std::uint64_t memoryLimitBytes = 0;  // of all buffers together

  std::uint32_t threadAffinity = 0;  // processor of the receiving thread plus 1; 0: any
  std::uint32_t threadPriority = 0;  // real-time priority of the receiving thread; 0: none

  bool operator==(const stream_setup&) const = default;
};

// Has the camera send one test packet of that size (headers included, do not fragment) to the stream's port,
// and returns the size that the camera's register settled on; 0 when the camera refuses.
using fire_test_packet = std::function<std::uint32_t(std::uint32_t size)>;

// A stream is prepared (sockets, buffers), opened and closed for each transfer, and cleared. Frames are
// received by a thread of its own, which lives from `open` to `close`, so that packets are asked for again
// while the consumer is busy.
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

  // Makes the sockets, the ring and the buffers. What is there already and fits is kept, the port included,
  // so that to prepare with the same setup again costs nothing. Frames that are out stay out if neither
  // payloadBytes, framesBuffered nor memoryLimitBytes changed. Says in the log what was granted: socket and
  // its buffer, packet size, number of buffers.
  //
  // Not while a transfer runs. Raises, after a line in the log,
  //   std::invalid_argument  a setup that cannot be: pixels that do not fit into payloadBytes, a packet
  //                          without room for payload; the text names the value and what would be right
  //   std::bad_alloc         framesBuffered frames exceed memoryLimitBytes, or the machine
  //   std::system_error      the system refuses a socket, or a packet ring that was asked for by name
  // and is then as before `prepare` was first called.
  void prepare(const stream_setup& setup);
  bool prepared() const;
  // Where the camera is to send: a port of `ownAddress`, since `prepare`.
  std::uint16_t port() const;

  // The largest packet that the path carries, found with test packets that go down from `asked` (0: from the
  // largest that there is). `fire` is called for each of them, on this thread. When no test packet arrives at
  // all, the size that was asked for is returned (for 0: 1500, which passes every network). The log says
  // which of that it was. Takes as long as `fire`, if the first one arrives; 0.3 s at worst, and ends early
  // when the camera refuses.
  //
  // After `prepare`, with the port told to the camera, and before `open`. The size is then to be written to
  // the camera and prepared with.
  std::uint32_t find_packet_size(std::uint32_t asked, const fire_test_packet& fire);

  // Starts to receive, for the camera to be told to send. What came before this belongs to nobody. `frames`
  // frames, whole or not, are handed over at most. Raises std::system_error when there is no thread to be
  // had.
  void open(std::uint64_t frames);
  bool running() const;
  // Ends the waits at once, then the receiving thread, within 0.1 s, and says in the log how the transfer
  // went. Buffers stay, and so do frames that are out. Without a running transfer it does nothing.
  void close();
  // The camera is lost, for good: ends the waits at once. Whoever finds out says why in the log, before.
  void lose();
  // Closes, and frees sockets and buffers; frames that are out become invalid.
  void clear();

  // Waits for the next frame, as GevWaitForNextFrame does. A frame with a hole, or of a geometry that was not
  // set up, is delivered once, without data and with status FRAME_INCOMPLETE, which is returned, too.
  //   GEVLIB_OK, GEVLIB_ERROR_FRAME_INCOMPLETE  *frame is set, and to be released
  //   GEVLIB_ERROR_TIME_OUT                     none came; at once for a time-out of 0
  //   GEVLIB_ERROR_ABORTED                      the transfer was closed during the wait
  //   GEVLIB_ERROR_DEVICE_LOST                  told at once; a consumer that goes on asking waits 0.1 s each
  // *frame is null for the last three.
  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs);
  // Gives a delivered frame back; PARAMETER_INVALID for what is none.
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame);

  // Frames that have come in since the stream was made, whole or not: what moves while a camera sends.
  std::uint64_t arrivals() const;
  // Sets every field of the record but `size`. Counters rise over all transfers of this object, also over
  // `clear`. Neither waits for the receiver nor is waited for.
  void read_health(camera_extension_health_record& record) const;

 private:
  struct parts;
  const std::unique_ptr<parts> parts_;
};

}  // namespace gige

#endif
