// An emulated network camera.
#ifndef PLATFORM_ARAVIS_EMULATOR_CAMERA_H
#define PLATFORM_ARAVIS_EMULATOR_CAMERA_H

#include <arv.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/aravis/emulator/gvcp_client.h"
#include "platform/aravis/emulator/registers.h"
#include "platform/picture/picture.h"
#include "platform/picture/scene.h"
#include "platform/picture/thermometer.h"

namespace gvcam {

// What all cameras of the program have in common.
struct camera_setup {
  std::uint32_t width = 1280;  // of the sensor, which is the window at power-up; pixels
  std::uint32_t height = 1024;
  double framesPerSecond = 30;      // at power-up
  std::uint32_t packetSize = 1500;  // of the stream at power-up, bytes with the IP and UDP heads
  bool noise = true;
  bool still = false;  // drawn for the first frame of an acquisition, repeated in the others
  bool keepOnClose = false;
  std::string description;  // path of the GenICam description
};

// The members are for one thread, the camera itself runs in another.
class camera {
 public:
  // Neither listens nor answers before `power_on`. `setup` and `scene` must outlive it.
  camera(std::string serial, std::string address, const camera_setup& setup, const picture::scene& scene);

  const std::string& serial() const { return serial_; }
  const std::string& address() const { return address_; }

  // Comes up with the power-up settings; a camera that is on stays as it is. Raises std::runtime_error when
  // its address cannot be had.
  void power_on();
  // Stops answering and sending, without a word to its clients.
  void power_off();

  // Loses that part (0 to 1) of the stream's packets. This and the two that follow outlast the power.
  void set_loss(double ratio);
  // Sends no frames, and answers as if it did.
  void set_silent(bool silent);
  // Has a client of its own control the camera, from as soon as nobody else does.
  void set_busy(bool busy);

  // What goes on slowly, to be called a few times a second: temperature, clients whose heartbeat failed, the
  // client that keeps it busy.
  void tick();

  // For the camera's own thread: puts the power-up settings back, before the client gets its answer.
  void on_control_released();
  // For the camera's own thread, after each frame: when to send the next, microseconds of the realtime clock.
  // Goes on from when this frame was due, not from now, as a sensor does not wait: what the machine had no
  // time for is sent late, at twice the rate, so that client and commands get their turn.
  std::uint64_t schedule_frame(std::uint64_t nowUs);

 private:
  struct unref {
    void operator()(ArvGvFakeCamera* device) const { g_object_unref(device); }
  };

  registers memory() const { return registers(arv_gv_fake_camera_get_fake_camera(device_.get())); }
  void write_power_up();
  void apply_losses();
  void measure_temperature();

  // In the camera's own thread.
  static void fill(ArvBuffer* buffer, void* self, guint32 exposureUs, guint32 gain, ArvPixelFormat format);
  void expose(ArvBuffer* buffer);
  void number(ArvBuffer* buffer);
  void draw(const registers& now, std::uint8_t* pixels) const;

  const std::string serial_;
  const std::string address_;
  const camera_setup& setup_;
  const picture::scene& scene_;
  gvcp_client client_;
  picture::thermometer thermometer_;

  double loss_ = 0;
  bool silent_ = false;
  bool busy_ = false;
  bool controls_ = false;  // the camera's own client has control

  std::vector<std::uint8_t> powerUp_;  // the registers
  std::chrono::steady_clock::time_point poweredOn_;
  std::uint16_t frameId_ = 0;    // of the latest frame; 0 before the first of an acquisition
  std::uint64_t dueUs_ = 0;      // when the latest frame was due; 0 for the first of an acquisition
  std::uint64_t exposedUs_ = 0;  // when it was drawn

  std::unique_ptr<ArvGvFakeCamera, unref> device_;  // last, for its thread uses the others
};

}  // namespace gvcam

#endif
