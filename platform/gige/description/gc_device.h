// The device that ArvGc reads a description for: it hands each access of a register to a port.
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

  // To read a description for. It must not be used after this object's end.
  ArvDevice* get() const { return object_.get(); }

  // Exceptions cannot pass ArvGc. What the port raised since this was called last is raised here.
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
