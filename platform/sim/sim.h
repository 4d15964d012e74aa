// Simulated cameras: functions for tests, benchmarks and tools, beside the calls of gevapi.h.
//
// They belong to the simulator's libGevApi.so.2. They may be called from any thread unless their comment says
// otherwise. A mistake in a text raises std::invalid_argument, whose message names the wrong word and what
// would be right. When several cameras have the same serial number, a function uses the first of them.
//
// `add_cameras` makes cameras. When GevApiInitialize finds none, it takes the description in the environment
// variable SIM_CAMERAS ("@" and a path: in that file). Without the variable there is one camera, serial
// number "SIM00001".
#ifndef PLATFORM_SIM_SIM_H
#define PLATFORM_SIM_SIM_H

#include <cstdint>
#include <functional>
#include <string>

#define SIM_EXPORT __attribute__((visibility("default")))

namespace sim {

// ---- Cameras

// Adds the cameras of a description: one camera a line, or several between semicolons. A camera is a row of
// key=value words. '#' starts a comment. A key that is left out has its default.
//
//   serial=TEXT model=TEXT version=TEXT user=TEXT address=A.B.C.D    how it presents itself
//   sensor=WxH           pixels of the sensor, which is the window at power-up          1280x1024
//   fps=HZ               frame rate at power-up                                         30
//   exposure=US          exposure time at power-up, microseconds                        5000
//   ticks=HZ             timestamp ticks a second; 0 is reported as 0, and 1e9 used     1000000000
//   timestamps=full|halves|none   how frames carry them                                 full
//   temperature=C|load   fixed, or following the frame rate                             load
//   scene=default|PATH   what the camera looks at; PATH is a PGM                        default
//   noise=on|off         shot and read noise                                            on
//   picture=live|still   still: drawn once a buffer, so that a frame costs nothing      live
//   pacing=clock|free    free: each wait gets a frame at once unless the consumer holds
//                        all buffers; no frame is dropped                               clock
//   window-limits=fixed|live      the maximum of OffsetX and OffsetY. fixed: the largest
//                        possible offset; a write that does not fit the current size is
//                        refused. live: the largest that fits the current size          fixed
//   on-close=reset|keep  settings when the camera is closed: reset to power-up, or kept reset
//   missing=NAME,NAME    features that the camera does not have
//   readonly=NAME,NAME   features that are read only
//   retype=NAME,NAME     features that are strings instead of their own kind
//   entryless=NAME.ENTRY,...      entries that an enumeration does not have
//   fault=FAULT          see `inject`, with '_' for each blank; may be given several times
SIM_EXPORT void add_cameras(const std::string& description);

// Removes all cameras, faults and the journal, and returns to the real clock. Open handles become invalid.
// There is no camera then, not even the default one, until add_cameras.
SIM_EXPORT void reset();

// The text of a feature's value, read without node map, journal and faults. For a feature with a selector,
// `selected` is the entry of the selector.
SIM_EXPORT std::string feature(const std::string& serial, const std::string& name,
                               const std::string& selected = "");
// Sets the value without checking limits or access mode. "DeviceTemperature" keeps a value that was set.
SIM_EXPORT void set_feature(const std::string& serial, const std::string& name, const std::string& value);
// Changes what a feature presents. `property` is one of: min, max, inc (numbers), access (NI, NA, WO, RO,
// RW), kind (integer, float, boolean, enumeration, string). With a name like "ChunkSelector.Gain" and
// `access`, it changes one entry of an enumeration.
SIM_EXPORT void alter_feature(const std::string& serial, const std::string& name, const std::string& property,
                              const std::string& value);

// What a host has not closed, freed or released. All zero once it has.
struct open_counts {
  int initializations;  // GevApiInitialize less GevApiUninitialize
  int cameras;          // open handles
  int transfers;        // transfers started and not freed
  int frames;           // frames delivered and not released
};
SIM_EXPORT open_counts open_now();
// Frames of the current or last transfer that the camera dropped because no buffer was free.
SIM_EXPORT std::uint64_t frames_lost(const std::string& serial);

// ---- Time

// Sets the clock, microseconds. It then moves by advance_clock only, and by a wait for a frame, which moves
// it to the time at which the wait ends. `reset` returns to the real clock.
SIM_EXPORT void drive_clock(std::uint64_t nowUs);
SIM_EXPORT void advance_clock(std::uint64_t us);
// The time on the driven clock, or on the monotonic one.
SIM_EXPORT std::uint64_t clock_us();

// ---- Faults

// Adds faults, one a line or several between semicolons: "POINT: WHAT" or "POINT: WHAT @FIRST xTIMES". Events
// at POINT count from 1 from now on. The fault hits TIMES events (all when left out) from the event FIRST (1
// when left out) on.
//
//   POINT                             WHAT
//   a call: "GevOpenCamera"           status N    returns N, does nothing
//                                     null        returns 0 and a null handle, node map or frame
//                                     slow US     begins that many microseconds later
//   "GevGetFeatureNodeMap"            empty       returns a reference that holds no node map, or as above
//   an access to a feature, as in     access, range, argument, logical, timeout, runtime
//   the journal: "write OffsetX",     raises the exception of that kind (see GenApi.h)
//   "read Gain", "min Gain", "max     std         raises std::runtime_error
//   Gain", "inc Width", "access       memory      raises std::bad_alloc
//   ChunkEnable"                      slow US     begins that many microseconds later
//   "frame"                           lost        the frame never arrives
//                                     empty       it arrives with a null data address
//                                     bad N       the wait delivers it, both with status N
//                                     silent      no frame arrives any more
//
// With a serial number the faults are for that camera only.
SIM_EXPORT void inject(const std::string& faults, const std::string& serial = "");
SIM_EXPORT void clear_faults();

// ---- Journal

// Has `listener` called with a line for every call of the library and every access to a feature, on the
// thread of the call and before its effect. Null ends that. A line is one of
//
//   "GevOpenCamera SIM00001 mode:2"                       a call with some of its arguments
//   "GevSetCameraInterfaceOptions heartbeat_timeout_ms:5000, streamPktSize:1500, ..."  all thirteen
//   "GevSetFeatureValue PixelFormat 17301505"
//   "read Gain", "min Gain", "max Gain", "inc Width", "access ChunkEnable", "access ChunkSelector.Gain"
//   "write OffsetX=64"                                    value as text
//
// A write without verification ends with " (unverified)", a read with verification with " (verified)", a read
// that ignores the cache with " (uncached)". The listener is never called by two threads at once. It may use
// cameras. It must not be replaced while another thread uses a camera.
SIM_EXPORT void journal(std::function<void(const std::string&)> listener);

}  // namespace sim

#endif
