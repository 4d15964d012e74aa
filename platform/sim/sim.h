// Simulated cameras: what a test, a benchmark or a tool can do with them beside the calls of gevapi.h.
//
// Everything here lives in the simulator's libGevApi.so.2. Functions may be called from any thread
// unless said otherwise; errors in a text are raised as std::invalid_argument whose message names the
// word that is wrong and what would be right.
//
// Serial numbers may repeat; what takes one here then means the first of these cameras.
//
// Cameras come from `add_cameras`, or, when there is none by the time of GevApiInitialize, from the
// environment variable SIM_CAMERAS (the same text, or "@" and the path of a file with it), or else
// from the default, one camera with the serial number "SIM00001".
#ifndef PLATFORM_SIM_SIM_H
#define PLATFORM_SIM_SIM_H

#include <cstdint>
#include <functional>
#include <string>

#define SIM_EXPORT __attribute__((visibility("default")))

namespace sim {

// ---- Cameras

// Adds the cameras of a description: one camera a line (or between semicolons), each a row of
// key=value words; '#' starts a comment. A key that is left out has its default.
//
//   serial=TEXT model=TEXT version=TEXT user=TEXT address=A.B.C.D    how it presents itself
//   sensor=WxH           pixels of the sensor, which is the window at power-up          1280x1024
//   fps=HZ               frame rate at power-up                                         30
//   exposure=US          exposure time at power-up, microseconds                        5000
//   ticks=HZ             timestamp ticks per second, 0 for a camera that says 0         1000000000
//   timestamps=full|halves|none   how frames carry them                                 full
//   temperature=C|load   fixed, or following the frame rate                             load
//   scene=default|PATH   what the camera looks at; PATH is a PGM                        default
//   noise=on|off         shot and read noise                                            on
//   picture=live|still   still: drawn once a buffer, so that a frame costs nothing      live
//   pacing=clock|free    free: a frame is ready whenever one is waited for and not all
//                        buffers are out; none is lost                                  clock
//   window-limits=fixed|live      whether OffsetX/OffsetY report the largest offset
//                        there can be (and refuse on writing what does not fit the size
//                        of the moment), or report the limit of the moment              fixed
//   on-close=reset|keep  whether closing the camera puts the power-up settings back     reset
//   missing=NAME,NAME    features that the camera does not have
//   readonly=NAME,NAME   features that can be read only
//   retype=NAME,NAME     features that are of another kind than usual (a string)
//   entryless=NAME.ENTRY,...      entries that the camera's enumerations do not have
//   fault=FAULT          see `inject`, blanks written as '_'; may be given several times
SIM_EXPORT void add_cameras(const std::string& description);

// Takes all cameras, faults and the journal away and goes back to the real clock. Open handles become
// invalid. Afterwards there is no camera, not even the default one, until add_cameras.
SIM_EXPORT void reset();

// The text of a feature of the camera with that serial number, read behind the node map's back: no
// journal, no fault. `selected` names the selector's entry where the feature has a value for each.
SIM_EXPORT std::string feature(const std::string& serial, const std::string& name,
                               const std::string& selected = "");
// Sets it, beyond what limits and access would allow; "DeviceTemperature" stays where it is set.
SIM_EXPORT void set_feature(const std::string& serial, const std::string& name, const std::string& value);
// Changes how the feature presents itself, or, with access and "ChunkSelector.Gain" for a name, one entry of
// an enumeration. `property` is one of: min, max, inc (numbers), access (NI, NA, WO,
// RO, RW), kind (integer, float, boolean, enumeration, string).
SIM_EXPORT void alter_feature(const std::string& serial, const std::string& name, const std::string& property,
                              const std::string& value);

// What is left open, to be zero when a host is done.
struct open_counts {
  int initializations;  // GevApiInitialize less GevApiUninitialize
  int cameras;          // open handles
  int transfers;        // transfers started and not freed
  int frames;           // frames delivered and not released
};
SIM_EXPORT open_counts open_now();
// Frames that this camera dropped because the consumer was late, since the last start.
SIM_EXPORT std::uint64_t frames_lost(const std::string& serial);

// ---- Time

// From now on time stands still but for advance_clock, and a wait for a frame jumps to the moment at
// which it ends. Microseconds. `reset` goes back to the real clock.
SIM_EXPORT void drive_clock(std::uint64_t nowUs);
SIM_EXPORT void advance_clock(std::uint64_t us);
// The driven clock, or the monotonic one.
SIM_EXPORT std::uint64_t clock_us();

// ---- Faults

// Scripts faults, one a line or between semicolons: "POINT: WHAT" or "POINT: WHAT @FIRST xTIMES".
// FIRST (1 when left out) counts the passes of that point from now on; TIMES (all when left out) is how
// many passes are hit.
//
//   POINT                             WHAT
//   a call: "GevOpenCamera"           status N    returns N instead of doing its work
//                                     null        returns 0 and a null handle, node map or frame
//                                     slow US     does its work so many microseconds later
//   "GevGetFeatureNodeMap"            empty       a reference that holds no node map, besides the above
//   a feature access as in the        access, range, argument, logical, timeout, runtime
//   journal: "write OffsetX",         raises the exception of that kind (see GenApi.h)
//   "read Gain", "min Gain", "max     std         raises std::runtime_error
//   Gain", "inc Width", "access       memory      raises std::bad_alloc
//   ChunkEnable"                      slow US
//   "frame"                           lost        the frame never arrives
//                                     empty       it arrives with a null data address
//                                     bad N       the wait delivers it, both with status N
//                                     silent      no frame arrives from here on
//
// With a serial number only for that camera, else for all.
SIM_EXPORT void inject(const std::string& faults, const std::string& serial = "");
SIM_EXPORT void clear_faults();

// ---- Journal

// Gets every call of the library and every access to a feature, in order, on the thread that makes it
// and before its effect; null stops it. A line is one of
//
//   "GevOpenCamera SIM00001 mode:2"                       a call with its telling arguments
//   "GevSetCameraInterfaceOptions heartbeat_timeout_ms:5000, streamPktSize:1500, ..."  all thirteen
//   "GevSetFeatureValue PixelFormat 17301505"
//   "read Gain", "min Gain", "max Gain", "inc Width", "access ChunkEnable", "access ChunkSelector.Gain"
//   "write OffsetX=64"                                    value as text
//
// and carries " (unverified)" on a write without verification and " (verified)" or " (uncached)" on a
// read with it. One line is told at a time, whatever the threads; the listener may use cameras itself. Not
// to be changed while another thread uses a camera.
SIM_EXPORT void journal(std::function<void(const std::string&)> listener);

}  // namespace sim

#endif
