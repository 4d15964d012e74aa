#include "platform/aravis/frame_stream.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstring>
#include <thread>
#include <utility>

#include "core/log.h"
#include "platform/aravis/sockets.h"
#include "platform/gev/exceptions.h"

namespace gige {
namespace {

using std::chrono::milliseconds;

constexpr guint64 usPerMs = 1000;
constexpr std::uint64_t lastShortId = 65'535;  // 16-bit frame numbers go on with 1
constexpr milliseconds lostWait(100);

// Frames that fill a packet socket's ring slowly come in batches, of more frames than there are buffers; on a
// UDP socket they cost no more.
constexpr std::uint32_t largeFrame = 512U << 10U;

bool wants_packet_socket(const stream_setup& setup) {
  return setup.packetSocket == packet_socket_use::on ||
         (setup.packetSocket == packet_socket_use::automatic && setup.payloadBytes >= largeFrame);
}

std::uint32_t bits_per_pixel(std::uint32_t format) {
  return (format >> 16U) & 0xffU;
}

// Aravis turns camera ticks into whole nanoseconds, rounding down; this turns them back.
std::uint64_t ticks_of(std::uint64_t ns, std::uint64_t ticksPerSecond) {
  constexpr std::uint64_t nsPerSecond = 1'000'000'000;
  if (ticksPerSecond == 0) {
    return ns;
  }
  const std::uint64_t rest = ns % nsPerSecond;
  const std::uint64_t whole = ns / nsPerSecond * ticksPerSecond;
  if (ticksPerSecond > nsPerSecond) {
    return whole +
           static_cast<std::uint64_t>(static_cast<double>(rest) * 1e-9 * static_cast<double>(ticksPerSecond));
  }
  return whole + (rest * ticksPerSecond + nsPerSecond - 1) / nsPerSecond;
}

}  // namespace

frame_stream::~frame_stream() {
  clear();
}

// ---- The receiver

namespace {

// What the receiving thread knows. It belongs to the stream of Aravis, which may outlive ours.
struct receiver {
  std::shared_ptr<link> owner;
  std::shared_ptr<std::atomic<std::uint64_t>> arrivals;
  std::uint32_t affinity;
  std::uint32_t priority;
};

void set_up_thread(const receiver& of) {
  if (of.affinity != 0) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(of.affinity - 1, &processors);
    if (const int error = pthread_setaffinity_np(pthread_self(), sizeof processors, &processors);
        error != 0) {
      LOG(2, "fail: receiving thread on processor %u (reason:%s)", of.affinity - 1, std::strerror(error));
    }
  }
  if (of.priority != 0) {
    sched_param priority{};
    priority.sched_priority = static_cast<int>(of.priority);
    if (const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority); error != 0) {
      LOG(2, "fail: receiving thread with real-time priority %u (reason:%s)", of.priority,
          std::strerror(error));
    }
  }
}

void on_event(void* context, ArvStreamCallbackType event, ArvBuffer* /*buffer*/) {
  const receiver& self = *static_cast<receiver*>(context);
  if (event == ARV_STREAM_CALLBACK_TYPE_INIT) {
    set_up_thread(self);
  } else if (event == ARV_STREAM_CALLBACK_TYPE_BUFFER_DONE) {
    {
      // The buffer is in the queue by now; a consumer that found none is waiting when this is through.
      const std::scoped_lock lock(self.owner->mutex());
      self.arrivals->fetch_add(1, std::memory_order_relaxed);
    }
    self.owner->wake().notify_all();
  }
}

void drop_receiver(void* context) {
  delete static_cast<receiver*>(context);
}

}  // namespace

std::uint16_t frame_stream::port() const {
  return arv_gv_stream_get_port(ARV_GV_STREAM(stream_.get()));
}

bool frame_stream::prepare(ArvDevice& camera, const stream_setup& setup) {
  if (stream_ != nullptr && setup == setup_) {
    if (!can_go_on()) {
      restart_receiver();
    }
    return false;
  }
  clear();
  setup_ = setup;
  make_buffers();
  make_stream(camera);
  give_all_back();
  return true;
}

// Frames of the next transfer are numbered from 1 again. The receiver takes up to a hundred numbers below the
// last one, which counts around, for late packets of earlier frames.
bool frame_stream::can_go_on() const {
  constexpr std::uint64_t lateNumbers = 100;
  const bool around = lastId_ > lastShortId - lateNumbers && lastId_ <= lastShortId;
  return lastId_ > lateNumbers && !around;
}

// Tens of milliseconds on a packet socket, whose ring is made anew. The receiver is never left stopped:
// Aravis cannot end a stream properly whose receiver is.
void frame_stream::restart_receiver() {
  arv_stream_stop_thread(stream_.get(), TRUE);  // drops its references to the buffers
  arv_stream_start_thread(stream_.get());
  give_all_back();
}

void frame_stream::give_all_back() {
  for (slot& each : slots_) {
    if (!each.out) {
      give_back(each);
    }
  }
}

void frame_stream::make_stream(ArvDevice& camera) {
  auto* const device = ARV_GV_DEVICE(&camera);
  arv_gv_device_set_packet_size_adjustment(device, ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
  const bool packetSocket = wants_packet_socket(setup_) && packet_sockets_allowed();
  arv_gv_device_set_stream_options(
      device, packetSocket ? ARV_GV_STREAM_OPTION_NONE : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
  glib_error error;
  auto* const context = new receiver{link_, arrivals_, setup_.threadAffinity, setup_.threadPriority};
  stream_.reset(arv_device_create_stream_full(&camera, on_event, context, drop_receiver, error.out()));
  if (stream_ == nullptr) {
    gev::raise<GenICam::RuntimeException>(std::string("no image stream: ") + error.text());
  }
  const double packets = std::max(1.0, setup_.payloadBytes / (setup_.packetBytes - 36.0));
  g_object_set(stream_.get(), "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
               static_cast<gint>(setup_.socketBufferBytes), "packet-request-ratio",
               std::min(1.0, setup_.maxPacketResends / packets), "packet-timeout",
               static_cast<guint>(setup_.packetResendMs * usPerMs), "frame-retention",
               static_cast<guint>(setup_.frameTimeoutMs * usPerMs), nullptr);
  if (setup_.maxPacketResends == 0) {  // otherwise as the camera can: one that cannot is not waited for
    g_object_set(stream_.get(), "packet-resend", ARV_GV_STREAM_PACKET_RESEND_NEVER, nullptr);
  }
  tell_what_was_granted(packetSocket);
}

// And asks for it, where Aravis leaves that to us.
void frame_stream::tell_what_was_granted(bool packetSocket) const {
  const char* const serial = link_->serial().c_str();
  LOG(4, "done: stream of %s (socket:%s, packet-size:%u, buffers:%u of %u bytes)", serial,
      packetSocket ? "packet" : "UDP", setup_.packetBytes, setup_.bufferCount, setup_.payloadBytes);
  if (packetSocket) {
    return;  // its frames come through a ring of its own
  }
  const std::uint32_t granted = enlarge_receive_buffer(port(), setup_.socketBufferBytes);
  const bool enough = granted >= setup_.socketBufferBytes;
  LOG(enough ? 4 : 2, "%s: socket buffer of %s (asked-for:%u, granted:%u bytes%s)", enough ? "done" : "fail",
      serial, setup_.socketBufferBytes, granted, enough ? "" : ", limit: sysctl net.core.rmem_max");
}

void frame_stream::make_buffers() {
  slots_ = std::vector<slot>(setup_.bufferCount);
  pixels_ = frame_memory(setup_.bufferCount, setup_.payloadBytes);
  for (std::size_t at = 0; at < slots_.size(); ++at) {
    slot& each = slots_[at];
    each.pixels = pixels_.frame(at);
    each.buffer.reset(arv_buffer_new_full(setup_.payloadBytes, each.pixels, &each, nullptr));
  }
}

// A push gives a reference away.
void frame_stream::give_back(slot& to) {
  arv_stream_push_buffer(stream_.get(), ARV_BUFFER(g_object_ref(to.buffer.get())));
}

void frame_stream::open(std::uint64_t frames) {
  const std::scoped_lock lock(link_->mutex());
  while (ArvBuffer* const late = arv_stream_try_pop_buffer(stream_.get())) {
    arv_stream_push_buffer(stream_.get(), late);  // of the transfer before
  }
  running_ = true;
  framesLeft_ = frames;
  whole_ = broken_ = missing_ = lastId_ = brokenBefore_ = 0;
}

bool frame_stream::running() const {
  const std::scoped_lock lock(link_->mutex());
  return running_;
}

void frame_stream::close() {
  {
    const std::scoped_lock lock(link_->mutex());
    if (!std::exchange(running_, false)) {
      return;
    }
    ++stops_;
  }
  link_->wake().notify_all();
}

void frame_stream::tell_statistics() {
  guint64 whole = 0;
  guint64 failed = 0;
  guint64 late = 0;
  arv_stream_get_statistics(stream_.get(), &whole, &failed, &late);
  const std::scoped_lock lock(link_->mutex());
  LOG(4,
      "stat: transfer of %s (whole:%" PRIu64 ", incomplete:%" PRIu64 ", missing:%" PRIu64
      ", packets-without-buffer:%" PRIu64 ")",
      link_->serial().c_str(), whole_, broken_, missing_, late - lateBefore_);
  lateBefore_ = late;
}

void frame_stream::clear() {
  lateBefore_ = 0;
  if (stream_ != nullptr && link_->lost()) {
    // Aravis tries for seconds to tell the camera, and may do so alone.
    std::thread([left = std::move(stream_), buffers = std::move(slots_),
                 pixels = std::move(pixels_)]() mutable {
      left.reset();
    }).detach();
  }
  stream_.reset();
  slots_.clear();
  pixels_ = {};
}

// ---- Frames

GEV_STATUS frame_stream::wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + milliseconds(timeoutMs);
  std::unique_lock lock(link_->mutex());
  const std::uint64_t stopsBefore = stops_;
  for (bool late = false;;) {
    if (link_->lost()) {
      // Told at once; a consumer that keeps asking does not keep a processor busy with it.
      if (std::exchange(lossTold_, true)) {
        link_->wake().wait_for(lock, std::min(lostWait, milliseconds(timeoutMs)));
      }
      return GEVLIB_ERROR_DEVICE_LOST;
    }
    if (stops_ != stopsBefore) {
      return GEVLIB_ERROR_ABORTED;
    }
    if (ArvBuffer* const arrived = running_ ? arv_stream_try_pop_buffer(stream_.get()) : nullptr) {
      if (framesLeft_ > 0) {
        return deliver(arrived, frame);
      }
      arv_stream_push_buffer(stream_.get(), arrived);
      continue;
    }
    if (late) {
      return GEVLIB_ERROR_TIME_OUT;
    }
    late = link_->wake().wait_until(lock, deadline) == std::cv_status::timeout;
  }
}

GEV_STATUS frame_stream::deliver(ArvBuffer* buffer, GEV_BUFFER_OBJECT** frame) {
  const owned<ArvBuffer> received(buffer);
  auto& in = *static_cast<slot*>(const_cast<void*>(arv_buffer_get_user_data(buffer)));
  in.out = true;
  --framesLeft_;
  if (is_whole(buffer)) {
    ++whole_;
    describe(in);
    count_gap(in.frame.id);
  } else {
    ++broken_;
    // Number, time and size of a broken frame are those of an earlier one.
    in.frame = {};
    in.frame.status = GEVLIB_ERROR_FRAME_INCOMPLETE;
  }
  *frame = &in.frame;
  return in.frame.status;
}

// Aravis calls frames successful that were cut off or are of another size.
bool frame_stream::is_whole(ArvBuffer* buffer) const {
  const auto type = arv_buffer_get_payload_type(buffer);
  const bool image =
      type == ARV_BUFFER_PAYLOAD_TYPE_IMAGE || type == ARV_BUFFER_PAYLOAD_TYPE_EXTENDED_CHUNK_DATA;
  if (arv_buffer_get_status(buffer) != ARV_BUFFER_STATUS_SUCCESS || !image) {
    return false;
  }
  std::size_t received = 0;
  arv_buffer_get_data(buffer, &received);
  const auto width = static_cast<std::uint32_t>(arv_buffer_get_image_width(buffer));
  const auto height = static_cast<std::uint32_t>(arv_buffer_get_image_height(buffer));
  const std::size_t bits = bits_per_pixel(arv_buffer_get_image_pixel_format(buffer));
  const std::size_t pixels = (std::size_t{width} * height * bits + 7) / 8;
  const bool complete =
      received == setup_.payloadBytes || (arv_buffer_has_chunks(buffer) != 0 && received >= pixels);
  return complete && width == setup_.width && height == setup_.height && pixels <= received;
}

void frame_stream::describe(slot& in) const {
  ArvBuffer* const buffer = in.buffer.get();
  std::size_t received = 0;
  arv_buffer_get_data(buffer, &received);
  const std::uint64_t ticks = ticks_of(arv_buffer_get_timestamp(buffer), setup_.ticksPerSecond);
  GEV_BUFFER_OBJECT& frame = in.frame;
  frame.status = GEVLIB_OK;
  frame.timestamp = ticks;
  frame.timestamp_hi = static_cast<std::uint32_t>(ticks >> 32U);
  frame.timestamp_lo = static_cast<std::uint32_t>(ticks);
  frame.id = arv_buffer_get_frame_id(buffer);
  frame.recv_size = static_cast<std::uint32_t>(received);
  frame.w = setup_.width;
  frame.h = setup_.height;
  frame.format = arv_buffer_get_image_pixel_format(buffer);
  frame.d = (bits_per_pixel(frame.format) + 7) / 8;
  frame.address = in.pixels;
}

// Numbers between two whole frames that no broken one stands for.
void frame_stream::count_gap(std::uint64_t id) {
  if (lastId_ != 0 && id != 0) {
    const bool around = id < lastId_ && lastId_ <= lastShortId;
    const std::uint64_t between = (around ? id + lastShortId : id) - lastId_ - 1;
    missing_ += between - std::min(between, broken_ - brokenBefore_);
  }
  lastId_ = id;
  brokenBefore_ = broken_;
}

GEV_STATUS frame_stream::release(const GEV_BUFFER_OBJECT* frame) {
  const auto of =
      std::find_if(slots_.begin(), slots_.end(), [=](const slot& each) { return &each.frame == frame; });
  const std::scoped_lock lock(link_->mutex());
  if (of == slots_.end() || !of->out) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  of->out = false;
  give_back(*of);
  return GEVLIB_OK;
}

}  // namespace gige
