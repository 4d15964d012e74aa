// The three functions that a camera driver bundle exports, under these unmangled names.
//
// Order: MgBundleInit once after loading; only if it returned 1, MgBundleCreateDevice for each camera;
// `destroy` on every device; MgBundleFini once, before unloading. The bundle keeps no state between these
// calls and takes no lock: MgBundleCreateDevice may run on several threads as far as the camera library
// allows that (ours do), the other two must not overlap any call into the bundle. None of them lets an
// exception out: a failure is logged and returned, an exception of a type that is not known ends the process.
#ifndef MEDIAGRABBER_BUNDLE_H
#define MEDIAGRABBER_BUNDLE_H

#include <cstdint>

#include <mediagrabber/device.h>
#include "core/table.h"

#define MG_BUNDLE_EXPORT __attribute__((visibility("default")))

extern "C" {

/// Starts the camera library. 1 when it started, else 0.
MG_BUNDLE_EXPORT std::int32_t MgBundleInit() noexcept;

/// Stops the camera library.
MG_BUNDLE_EXPORT void MgBundleFini() noexcept;

/// Opens and configures the camera that `table` describes (see property.h). The table is the host's and is
/// read during the call only; `handler` is the host's and must outlive the device. Null on failure, with
/// nothing left open; otherwise the caller ends the device with `destroy`.
MG_BUNDLE_EXPORT Zavik::Support::MediaGrabber::device_like* MgBundleCreateDevice(
    Zavik::Support::MediaGrabber::device_handler_like* handler, Zavik::Support::table_like* table) noexcept;
}

#endif
