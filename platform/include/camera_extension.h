// What our camera libraries offer beside `gevapi.h`: a list of all cameras of a network, temporary addresses,
// features with their limits, figures of the stream, and an end to all waits.
//
// Both `libGevApi.so.2` of this tree have these functions; a framework's own library has none of them. So a
// host looks them up with dlsym in the camera library that it opened, and works without them where they are
// absent.
//
// Every function may be called on any thread, also while another thread waits for the same camera. All but
// the version return 0 or a negative errno:
//   -EINVAL   an argument is null or out of range
//   -ENODEV   no camera with that serial number is open, or was open where that is enough
//   -ENOTSUP  the library cannot do that
//   -ENOMEM, -EIO  memory ran out; the camera did not answer or refused
//   -ENOTCONN the library is not initialized (GevApiInitialize)
// The argument `serial` is a camera's serial number. Texts are UTF-8, NUL-terminated and without control
// characters. Texts for a callback are valid during its call only.
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
  const char* user_name;       // DeviceUserID; often empty
  const char* interface_name;  // of this machine, which received the answer: "eth1"
  const char* unreachable;     // why the camera cannot be opened as it is; null: it can
  uint64_t mac;                // hardware address, 48 bits
  uint32_t address;            // IPv4, host byte order, as the three below
  uint32_t mask;
  uint32_t gateway;     // 0: none
  uint32_t controller;  // address of the client in control; 0: none, all bits set: one without a name
} camera_extension_camera;

// Searches for cameras and calls `visit` for each, in the order of addresses. A `visit` that does not return
// 0 is the last one. The number of cameras has no limit as with GevGetCameraList.
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
// also while frames are transferred. A `visit` that does not return 0 is the last one. `visit` must not call
// this library.
int camera_extension_features(const char* serial,
                              int (*visit)(void* context, const camera_extension_feature* feature),
                              void* context);

typedef enum {
  camera_extension_simulated = 0,
  camera_extension_udp = 1,
  camera_extension_packet_ring = 2
} camera_extension_transport;

// The state of a camera's stream. Counters start at the opening of the camera and go on over restarts of the
// transfer. They can be read until the camera is opened again.
typedef struct {
  uint32_t size;  // set by the caller: sizeof of the record that it was built with

  uint32_t transport;  // granted: camera_extension_transport

  uint64_t frames_whole;
  uint64_t frames_incomplete;  // a packet of it never came
  uint64_t frames_missing;     // no packet of it came
  uint64_t frames_refused;     // of a geometry or format that was not set up
  uint64_t frames_dropped;     // no buffer was free for it: the consumer took too long

  uint64_t packets_received;        // each counted once, whether requested or not
  uint64_t packets_lost;            // missing when their frame ended; expected = received + lost
  uint64_t packets_requested;       // requested again (PACKETRESEND)
  uint64_t packets_received_again;  // arrived on request
  uint64_t packets_duplicate;
  uint64_t packets_foreign;  // not of the camera's stream
  uint64_t kernel_drops;     // packets that the kernel dropped before the receiver read them

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

// Ends all waits for this camera within 0.1 s, with an error, also the wait of an opening. An open camera is
// then lost: it has to be closed, and may be opened again.
int camera_extension_cancel(const char* serial);

#ifdef __cplusplus
}
#endif

#endif
