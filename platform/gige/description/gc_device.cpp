#include "platform/gige/description/gc_device.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>
#include <span>
#include <utility>

namespace gige {

struct gc_device::object {
  ArvDevice parent;
  gc_device* owner;

  static gboolean read_memory(ArvDevice* device, guint64 address, guint32 size, void* to, GError** error) {
    return attempt(device, error, [&](register_port& registers) {
      registers.read(address, {static_cast<std::uint8_t*>(to), size});
    });
  }

  static gboolean write_memory(ArvDevice* device, guint64 address, guint32 size, void* from, GError** error) {
    return attempt(device, error, [&](register_port& registers) {
      registers.write(address, {static_cast<const std::uint8_t*>(from), size});
    });
  }

  // Converts from big endian, the byte order of all GigE Vision registers.
  static gboolean read_register(ArvDevice* device, guint64 address, guint32* to, GError** error) {
    std::array<std::uint8_t, sizeof *to> bytes{};
    const gboolean read = read_memory(device, address, bytes.size(), bytes.data(), error);
    std::memcpy(to, bytes.data(), bytes.size());
    *to = ntohl(*to);
    return read;
  }

  static gboolean write_register(ArvDevice* device, guint64 address, guint32 value, GError** error) {
    value = htonl(value);
    return write_memory(device, address, sizeof value, &value, error);
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
        g_type_register_static_simple(ARV_TYPE_DEVICE, "GigeRegisters", sizeof(ArvDeviceClass), set_up_class,
                                      sizeof(object), nullptr, static_cast<GTypeFlags>(0));
    return registered;
  }
};

gc_device::gc_device(register_port& registers)
    : registers_(registers), object_(ARV_DEVICE(g_object_new(object::type(), nullptr))) {
  reinterpret_cast<object*>(object_.get())->owner = this;
}

template <class Access>
gboolean gc_device::attempt(ArvDevice* device, GError** error, Access access) {
  gc_device& self = *reinterpret_cast<object*>(device)->owner;
  try {
    access(self.registers_);
    return TRUE;
  } catch (...) {
    self.raised_ = std::current_exception();
    g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "see the exception");
    return FALSE;
  }
}

void gc_device::rethrow() {
  if (raised_ != nullptr) {
    std::rethrow_exception(std::exchange(raised_, nullptr));
  }
}

}  // namespace gige
