// The GigE Vision camera library as the bundle and a host use it: find cameras, open one, set the
// stream options, start and stop the transfer, take frames.
//
// This header stands for a deployment's own `gevapi.h` and declares what the bundle uses of it, under
// the same names, so that the same sources compile against either. Two libraries implement it here, both
// called `libGevApi.so.2`: simulated cameras (`platform/sim`) and cameras on the network
// (`platform/gige`). The process that loads the bundle chooses one of them.
//
// Threads: calls for different cameras may run at the same time. Calls for one camera, and accesses to
// its nodes, come one after the other. The exception is `GevAbortTransfer`, which wakes a waiting
// `GevWaitForNextFrame`.
#ifndef GEVAPI_H
#define GEVAPI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// What every call returns: 0 on success, else one of the codes below.
typedef int32_t GEV_STATUS;

enum {
  GEVLIB_OK = 0,
  GEVLIB_ERROR_GENERIC = -1,               // the library failed in a way that has no code of its own
  GEVLIB_ERROR_NOT_INITIALIZED = -2,       // GevApiInitialize has not been called, or failed
  GEVLIB_ERROR_INVALID_HANDLE = -3,        // null, or not a handle of an open camera
  GEVLIB_ERROR_PARAMETER_NULL = -4,        // a required pointer is null
  GEVLIB_ERROR_PARAMETER_INVALID = -5,     // a size, an option or a count out of range
  GEVLIB_ERROR_DEVICE_NOT_FOUND = -6,      // no camera answers to that record
  GEVLIB_ERROR_ACCESS_DENIED = -7,         // another client controls the camera
  GEVLIB_ERROR_FEATURE_NOT_FOUND = -8,     // the camera has no feature of that name
  GEVLIB_ERROR_FEATURE_REFUSED = -9,       // read-only, out of range, or no such entry
  GEVLIB_ERROR_TRANSFER_ACTIVE = -10,      // not while frames are being transferred
  GEVLIB_ERROR_TRANSFER_NOT_ACTIVE = -11,  // only while frames are being transferred
  GEVLIB_ERROR_TIME_OUT = -12,             // no frame came within the given time
  GEVLIB_ERROR_ABORTED = -13,              // the transfer was aborted while waiting
  GEVLIB_ERROR_NO_MEMORY = -14,            // the buffers exceed streamMemoryLimitMax or the machine
  GEVLIB_ERROR_DEVICE_LOST = -15,          // the camera stopped answering, or control was taken away
  GEVLIB_ERROR_FRAME_INCOMPLETE = -16      // a frame arrived with parts missing; its data is not valid
};

// An open camera; from GevOpenCamera to GevCloseCamera.
typedef void* GEV_CAMERA_HANDLE;

typedef enum {
  GevMonitorMode = 0,   // read only
  GevControlMode = 2,   // control; others may read
  GevExclusiveMode = 4  // control; nobody else may read
} GevAccessMode;

// A camera that was found. Texts are NUL-terminated.
typedef struct {
  char manufacturer[65];
  char model[65];
  char serial[65];
  char version[65];
  char username[65];
  uint32_t ipAddr;   // IPv4 address of the camera, host byte order
  uint32_t macHigh;  // upper 16 bits of its hardware address
  uint32_t macLow;   // lower 32 bits
} GEV_DEVICE_INTERFACE;

// How commands and the image stream of one camera are handled. Read, change, write back.
typedef struct {
  uint32_t numRetries;            // a command that is not answered is sent again so often
  uint32_t command_timeout_ms;    // wait for the answer to one command, milliseconds
  uint32_t heartbeat_timeout_ms;  // the camera frees itself of a client silent for so long, milliseconds
  uint32_t streamPktSize;   // largest stream packet, bytes with IP and UDP header; 0: the library's choice
  uint32_t streamPktDelay;  // pause between two packets, microseconds
  uint32_t streamNumFramesBuffered;     // frames that the library holds for a late consumer; at least 1
  uint32_t streamMemoryLimitMax;        // all frame buffers together, bytes
  uint32_t streamMaxPacketResends;      // packets of one frame that are asked for again
  uint32_t streamFrame_timeout_ms;      // a frame not complete after so long is given up, milliseconds
  uint32_t streamPktResend_timeout_ms;  // wait for a packet that was asked for again, milliseconds
  uint32_t streamSocketBufferSize;      // receive buffer of the stream socket, bytes; 0: the library's choice
  uint32_t streamThreadAffinity;        // processor of the receiving thread plus 1; 0: any
  uint32_t streamThreadPriority;        // real-time priority of the receiving thread; 0: none
} GEV_CAMERA_OPTIONS;

// A received frame. It and its data belong to the library and are the caller's to read between
// GevWaitForNextFrame and GevReleaseFrame.
typedef struct {
  int32_t status;         // 0 when the frame is whole
  uint32_t timestamp_hi;  // camera ticks at the start of the exposure, upper half
  uint32_t timestamp_lo;  // and lower half
  uint64_t timestamp;     // the same as one number; 0 where the camera gives only the halves
  uint64_t id;            // frame number, counted by the camera
  uint32_t recv_size;     // bytes received
  uint32_t h;             // lines
  uint32_t w;             // pixels a line
  uint32_t d;             // bytes a pixel
  uint32_t format;        // GigE Vision pixel format code
  uint8_t* address;       // first pixel; null when there is no image
} GEV_BUFFER_OBJECT;

// GigE Vision pixel format code of 8-bit monochrome, one byte per pixel.
#define fmtMono8 0x01080001u

// Starts and stops the library. Once per process, around everything else.
GEV_STATUS GevApiInitialize(void);
GEV_STATUS GevApiUninitialize(void);
// Closes the sockets that the library shares between cameras; after GevApiUninitialize.
GEV_STATUS _CloseSocketAPI(void);

// Fills at most maxCameras records and sets *numCameras to the number of cameras there are, which may
// be more than were filled.
GEV_STATUS GevGetCameraList(GEV_DEVICE_INTERFACE* cameras, int maxCameras, int* numCameras);

// Opens the camera of a record that GevGetCameraList filled, and closes it. Closing stops and frees a
// transfer that still runs, and sets *handle to null.
GEV_STATUS GevOpenCamera(GEV_DEVICE_INTERFACE* camera, GevAccessMode mode, GEV_CAMERA_HANDLE* handle);
GEV_STATUS GevCloseCamera(GEV_CAMERA_HANDLE* handle);

GEV_STATUS GevGetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options);
GEV_STATUS GevSetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options);

// The camera's features by name: to be cast to GenApi::CNodeMapRef*. Null on failure. It belongs to the
// library and is valid until the camera is closed.
void* GevGetFeatureNodeMap(GEV_CAMERA_HANDLE handle);

// Reads or writes one feature by name. *type is set to the kind of the feature: 3 integer, 4 float,
// 5 string, 6 enumeration, 8 boolean. Integers, enumerations and booleans are passed as signed 32-bit
// or 64-bit values, floats as float or double, according to size in bytes; strings as size characters.
// Our libraries also pass any feature as text, in 16 characters or more: an enumeration by its entry's name.
GEV_STATUS GevGetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int* type, int size, void* value);
GEV_STATUS GevSetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int size, void* value);

// Starts a transfer of numFrames frames; all bits set: until it is aborted. The buffers are allocated
// here, by the stream options, and live until GevFreeTransfer.
GEV_STATUS GevStartTransfer(GEV_CAMERA_HANDLE handle, uint32_t numFrames);
// Stops the transfer at once; buffers stay allocated, a frame that is out stays valid.
GEV_STATUS GevAbortTransfer(GEV_CAMERA_HANDLE handle);
// Frees the buffers; frames that are out become invalid.
GEV_STATUS GevFreeTransfer(GEV_CAMERA_HANDLE handle);

// Waits at most timeout_ms milliseconds for the next frame. *frame is set to it, or to null when there
// is none; the status is that of the wait. Frames that nobody takes in time are lost.
GEV_STATUS GevWaitForNextFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT** frame, uint32_t timeout_ms);
// Gives a frame's buffer back. Every frame that a wait delivered is released once.
GEV_STATUS GevReleaseFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT* frame);

#ifdef __cplusplus
}
#endif

#endif
