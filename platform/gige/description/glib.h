// Owners of GLib's objects and errors.
#ifndef PLATFORM_GIGE_DESCRIPTION_GLIB_H
#define PLATFORM_GIGE_DESCRIPTION_GLIB_H

#include <arv.h>

#include <memory>
#include <string>

namespace gige {

struct unreference {
  void operator()(void* object) const { g_object_unref(object); }
};
template <class Object>
using owned = std::unique_ptr<Object, unreference>;

// Receives the error of a call of ArvGc.
class glib_error {
 public:
  glib_error() = default;
  glib_error(const glib_error&) = delete;
  glib_error& operator=(const glib_error&) = delete;
  ~glib_error() { g_clear_error(&error_); }

  // The argument of one call.
  GError** out() {
    g_clear_error(&error_);
    return &error_;
  }
  bool is(GQuark domain, int code) const { return g_error_matches(error_, domain, code) != 0; }

  // Raises the exception of the GenICam tree that stands for the error, with the name of the feature. Returns
  // if there is no error.
  void raise_if_set(const std::string& feature) const;

 private:
  GError* error_ = nullptr;
};

}  // namespace gige

#endif
