// The device of a description in ArvGc. It passes each register access to a port.
#ifndef PLATFORM_GIGE_DESCRIPTION_GC_DEVICE_H
#define PLATFORM_GIGE_DESCRIPTION_GC_DEVICE_H

#include <exception>

#include "platform/gige/description/glib.h"
#include "platform/gige/description/register_port.h"

namespace gige {

class gc_device {
 public:
  // The port outlives this object.
  explicit gc_device(register_port& registers);
  gc_device(const gc_device&) = delete;
  gc_device& operator=(const gc_device&) = delete;

  // For arv_gc_new; valid as long as this object.
  ArvDevice* get() const { return object_.get(); }

  // Exceptions cannot pass through ArvGc. Raises the latest one that the port raised since the last call.
  void rethrow();

 private:
  struct object;
  template <class Access>
  static gboolean attempt(ArvDevice* device, GError** error, Access access);

  register_port& registers_;
  std::exception_ptr raised_;
  owned<ArvDevice> object_;
};

}  // namespace gige

#endif
