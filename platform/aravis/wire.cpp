#include "platform/aravis/wire.h"

#include <cstring>

namespace gige {

// The ArvDevice that a description is read for: its operations are those of a wire.
struct wire::front {
  ArvDevice parent;
  wire* owner;

  static wire& of(ArvDevice* device) { return *reinterpret_cast<front*>(device)->owner; }

  static gboolean read_memory(ArvDevice* device, guint64 address, guint32 size, void* to, GError** error) {
    wire& self = of(device);
    return self.read({address, size, false}, to, error, [&](GError** failed) {
      return arv_device_read_memory(&self.camera_, address, size, to, failed);
    });
  }

  static gboolean read_register(ArvDevice* device, guint64 address, guint32* to, GError** error) {
    wire& self = of(device);
    return self.read({address, sizeof *to, true}, to, error, [&](GError** failed) {
      return arv_device_read_register(&self.camera_, address, to, failed);
    });
  }

  static gboolean write_memory(ArvDevice* device, guint64 address, guint32 size, void* from, GError** error) {
    wire& self = of(device);
    return self.write({address, size, false}, from, error, [&](GError** failed) {
      return arv_device_write_memory(&self.camera_, address, size, from, failed);
    });
  }

  static gboolean write_register(ArvDevice* device, guint64 address, guint32 value, GError** error) {
    wire& self = of(device);
    return self.write({address, sizeof value, true}, &value, error, [&](GError** failed) {
      return arv_device_write_register(&self.camera_, address, value, failed);
    });
  }

  static void set_up_class(void* type, void* /*data*/) {
    auto* const device = static_cast<ArvDeviceClass*>(type);
    device->read_memory = read_memory;
    device->read_register = read_register;
    device->write_memory = write_memory;
    device->write_register = write_register;
  }

  static GType type() {
    static const GType registered =
        g_type_register_static_simple(ARV_TYPE_DEVICE, "GevApiWire", sizeof(ArvDeviceClass), set_up_class,
                                      sizeof(front), nullptr, static_cast<GTypeFlags>(0));
    return registered;
  }
};

wire::wire(ArvDevice& camera, link& owner)
    : camera_(camera), link_(owner), front_(ARV_DEVICE(g_object_new(front::type(), nullptr))) {
  reinterpret_cast<front*>(front_.get())->owner = this;
}

wire::~wire() = default;

// A register whose lifetime is known is the camera's to change, so that only its age counts beside our
// writes.
bool wire::fresh(const place& where, const content& known) const {
  if (known.readAt < trusted_) {
    return false;
  }
  const auto limited = lifetimes_.find(where.address);
  return limited == lifetimes_.end() || std::chrono::steady_clock::now() - known.readTime < limited->second;
}

template <class Command>
bool wire::send(GError** error, Command command) {
  if (link_.lost()) {
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_NOT_CONNECTED, "the camera is lost");
    return false;
  }
  ++roundTrips_;
  GError* failed = nullptr;
  const bool done = command(&failed) != 0;
  if (g_error_matches(failed, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TIMEOUT) != 0) {
    link_.lose("it does not answer commands");
  }
  if (failed != nullptr) {
    g_propagate_error(error, failed);
  }
  return done;
}

template <class Ask>
bool wire::read(const place& where, void* to, GError** error, Ask ask) {
  const auto known = known_.find(where);
  if (known != known_.end() && fresh(where, known->second)) {
    std::memcpy(to, known->second.bytes.data(), where.size);
    return true;
  }
  if (!send(error, ask)) {
    return false;
  }
  remember(where, to);
  return true;
}

template <class Tell>
bool wire::write(const place& where, const void* from, GError** error, Tell tell) {
  forget(where.address, where.size);
  written_.reset();
  if (!send(error, tell)) {
    return false;
  }
  const auto* const bytes = static_cast<const std::uint8_t*>(from);
  written_.emplace(where, std::vector<std::uint8_t>(bytes, bytes + where.size));
  return true;
}

void wire::keep_written() {
  if (written_) {
    remember(written_->first, written_->second.data());
  }
}

void wire::remember(const place& where, const void* bytes) {
  const auto* const first = static_cast<const std::uint8_t*>(bytes);
  content& known = known_[where];
  known.bytes.assign(first, first + where.size);
  known.readAt = now_;
  known.readTime = std::chrono::steady_clock::now();
}

// Also what overlaps in part: registers may be described in pieces.
void wire::forget(std::uint64_t address, std::uint32_t size) {
  std::erase_if(known_, [=](const auto& each) {
    const place& where = each.first;
    return where.address < address + size && address < where.address + where.size;
  });
}

}  // namespace gige
