// The statuses of the C API that stand for exceptions.
#ifndef PLATFORM_GEV_STATUS_OF_CALL_H
#define PLATFORM_GEV_STATUS_OF_CALL_H

#include <GenApi/GenApi.h>
#include <gevapi.h>

#include <new>

namespace gev {

// Calls `work` and returns its status. An exception becomes a status, because none may leave a library with a
// C API.
template <class Work>
GEV_STATUS status_of_call(Work work) {
  try {
    return work();
  } catch (const GenICam::AccessException&) {
    return GEVLIB_ERROR_FEATURE_REFUSED;
  } catch (const GenICam::OutOfRangeException&) {
    return GEVLIB_ERROR_FEATURE_REFUSED;
  } catch (const GenICam::InvalidArgumentException&) {
    return GEVLIB_ERROR_FEATURE_REFUSED;
  } catch (const GenICam::TimeoutException&) {
    return GEVLIB_ERROR_DEVICE_LOST;
  } catch (const std::bad_alloc&) {
    return GEVLIB_ERROR_NO_MEMORY;
  } catch (...) {
    return GEVLIB_ERROR_GENERIC;
  }
}

}  // namespace gev

#endif
