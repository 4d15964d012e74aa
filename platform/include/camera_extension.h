// What our camera libraries offer beside `gevapi.h`: every camera of a network in any order, temporary
// addresses, features with their limits, figures of the stream, and an end to waiting.
//
// Both `libGevApi.so.2` of this tree have these functions; a framework's own library has none of them. A host
// therefore finds them with dlsym in the camera library that it opened, and does without where they are
// absent.
//
// Every function may be called on any thread, also while another one waits for the same camera. All but the
// version return 0 or a negative errno:
//   -EINVAL   an argument is null or cannot be
//   -ENODEV   no camera with that serial number or hardware address is known, or open where it must be
//   -ENOTSUP  the library cannot do that
//   -ENOMEM, -EIO  memory ran out; the camera did not answer or refused
//   -ENOTCONN the library is not initialized (GevApiInitialize)
// A camera is named by its serial number. Texts are UTF-8, NUL-terminated and without control characters;
// those that a callback gets are valid during the call only.
#ifndef CAMERA_EXTENSION_H
#define CAMERA_EXTENSION_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CAMERA_EXTENSION_VERSION 1

// The version of this interface that the library implements, CAMERA_EXTENSION_VERSION of its header. Fields
// and functions are only ever added.
int camera_extension_version(void);

// Puts the cameras with these serial numbers first in what GevGetCameraList gives from now on, in this order,
// however many other cameras answer. Replaces what was preferred before; 0 serials prefer none. The texts are
// copied.
int camera_extension_prefer(const char* const* serials, size_t count);

// A camera that was found.
typedef struct {
  const char* manufacturer;
  const char* model;
  const char* serial;
  const char* version;
  const char* user_name;       // what somebody called it; often empty
  const char* interface_name;  // of this machine, over which it answered: "eth1"
  const char* unreachable;     // null, or why the camera cannot be opened as it is, in words
  uint64_t mac;                // hardware address, 48 bits
  uint32_t address;            // IPv4, host byte order, as the three below
  uint32_t mask;
  uint32_t gateway;     // 0: none
  uint32_t controller;  // who controls it; 0: nobody, all bits set: somebody whom the camera does not name
} camera_extension_camera;

// Searches for cameras and calls `visit` for each, by address, within the call. A `visit` that returns other
// than 0 ends it. GevGetCameraList's limit does not apply.
int camera_extension_list(int (*visit)(void* context, const camera_extension_camera* camera), void* context);

// Gives the camera with that hardware address (48 bits) an IPv4 configuration until it is switched off
// (FORCEIP). All zero: it takes the one that it has stored. Addresses in host byte order. Returns once the
// camera answered, or -EIO. -ENOTSUP with simulated cameras.
int camera_extension_set_address(uint64_t mac, uint32_t ip, uint32_t mask, uint32_t gateway);

typedef enum {
  camera_extension_integer = 0,
  camera_extension_float = 1,
  camera_extension_boolean = 2,
  camera_extension_enumeration = 3,
  camera_extension_string = 4
} camera_extension_type;

// A feature of an open camera, at the moment of the call.
typedef struct {
  const char* name;
  const char* value;  // as text; null when it cannot be read
  const char* min;    // as text; null where there is none, as are the two below
  const char* max;
  const char* increment;
  const char* unit;      // empty where there is none, as are the two below
  const char* category;  // the categories it is in, from the outermost: "Root/ImageFormatControl"
  const char* description;
  const char* const* entries;  // names of the entries that the camera offers now, entry_count of them
  size_t entry_count;
  camera_extension_type type;
  int readable;  // 1 or 0
  int writable;
} camera_extension_feature;

// Calls `visit` for each feature of a camera that is open in this process, in the order of its description,
// also while frames are transferred. A `visit` that returns other than 0 ends it. `visit` calls nothing of
// this library.
int camera_extension_features(const char* serial,
                              int (*visit)(void* context, const camera_extension_feature* feature),
                              void* context);

typedef enum {
  camera_extension_simulated = 0,
  camera_extension_udp = 1,
  camera_extension_packet_ring = 2
} camera_extension_transport;

// How the stream of a camera is doing. Counters rise from the camera's opening on, over restarts of the
// transfer, and can be read until it is opened again.
typedef struct {
  uint32_t size;  // set by the caller: sizeof of the record that it was built with

  uint32_t transport;  // granted: camera_extension_transport

  uint64_t frames_whole;
  uint64_t frames_incomplete;  // a packet of it never came
  uint64_t frames_missing;     // no packet of it came
  uint64_t frames_refused;     // of a geometry or format that was not set up
  uint64_t frames_dropped;     // no buffer was free for it: the consumer took too long

  uint64_t packets_received;   // each counted once, whether it came at first or on request
  uint64_t packets_lost;       // had not arrived by the time their frame ended; expected = received + lost
  uint64_t packets_requested;  // asked for again
  uint64_t packets_received_again;  // that came on request
  uint64_t packets_duplicate;
  uint64_t packets_foreign;  // not from the camera, or not of its stream
  uint64_t kernel_drops;     // packets that the system dropped before the receiver could take them

  uint64_t frame_id;  // of the frame handed over last, as the camera counts; 0 before the first one. Read
                      // between the wait that delivered a frame and the next wait, it is that frame's
  uint64_t frame_time_ns;  // and its time on the camera's clock, nanoseconds

  uint32_t packet_size;    // granted, bytes with IP and UDP heads
  uint32_t socket_buffer;  // granted, bytes; the ring's with a packet ring
  uint32_t buffers;        // frames
  uint32_t reserved;       // 0
} camera_extension_health_record;

// Fills as much of the record as its size says.
int camera_extension_health(const char* serial, camera_extension_health_record* record);

// Ends what any call is waiting for on this camera, opening it included, within 0.1 s and with an error. The
// camera is lost to whoever has it open: it is to be closed, and may be opened again.
int camera_extension_cancel(const char* serial);

#ifdef __cplusplus
}
#endif

#endif
