#include "platform/gvcam/power_up.h"

#include <span>

#include "platform/gvcam/frame_settings.h"
#include "platform/picture/picture.h"

namespace gvcam {
namespace {

namespace standard = gige_protocol::registers;

constexpr const char* vendorName = "Emulated Cameras";
constexpr const char* modelName = "gvcam";
constexpr const char* versionText = "1.0";

constexpr std::uint32_t protocolVersion = 0x0002'0000;
constexpr std::uint32_t powerUpHeartbeatMs = 3000;
constexpr std::uint32_t pendingTimeoutMs = 1000;
constexpr std::uint32_t ticksPerSecond = 1'000'000'000;
constexpr double powerUpExposureUs = 5000;
constexpr std::uint32_t on = 1;
constexpr std::uint32_t acquisitionContinuous = 1;
constexpr std::uint32_t triggerSourceSoftware = 1;
constexpr std::uint32_t temperatureSelectorMainboard = 1;

// A locally administered address that ends with a hash (FNV-1a) of the serial number: a camera has the same
// one wherever it runs.
gige_protocol::mac_address default_mac(const std::string& serial) {
  std::uint32_t hash = 2166136261U;
  for (const char letter : serial) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  gige_protocol::mac_address mac = {0x02, 0x00};
  gige_protocol::store(std::span(mac), 2, hash);
  return mac;
}

void write_identity(register_memory& to, const camera_identity& identity) {
  to.set_word(standard::version, protocolVersion);
  to.set_word(standard::deviceMode, gige_protocol::device_mode::bigEndian | gige_protocol::device_mode::utf8);
  const gige_protocol::mac_address mac = identity.mac.value_or(default_mac(identity.serial));
  to.set_word(standard::macHigh, gige_protocol::load<std::uint16_t>(mac, 0));
  to.set_word(standard::macLow, gige_protocol::load<std::uint32_t>(mac, 2));
  // The program gives it an address, as a DHCP server would.
  to.set_word(standard::supportedIpConfiguration, gige_protocol::ip_configuration::dhcp);
  to.set_word(standard::currentIpConfiguration, gige_protocol::ip_configuration::dhcp);
  to.set_text(standard::manufacturerName, standard::nameSize, vendorName);
  to.set_text(standard::modelName, standard::nameSize, modelName);
  to.set_text(standard::deviceVersion, standard::nameSize, versionText);
  to.set_text(standard::serialNumber, standard::serialSize, identity.serial);
  to.set_text(standard::userDefinedName, standard::userNameSize, identity.userName);
}

void write_capabilities(register_memory& to, const camera_setup& setup) {
  namespace capability = gige_protocol::gvcp_capability;
  to.set_word(standard::interfaceCount, 1);
  to.set_word(standard::streamChannelCount, 1);
  to.set_word(standard::gvspCapability,
              gige_protocol::gvsp_capability::sourcePort | gige_protocol::gvsp_capability::blockIds16Bit);
  to.set_word(standard::gvcpCapability,
              capability::userDefinedName | capability::serialNumber | capability::primaryApplication |
                  capability::extendedStatusCodes | capability::extendedStatusCodes2 |
                  capability::pendingAcknowledge | capability::writeMemory | capability::concatenation |
                  (setup.canResend ? capability::packetResend : 0));
  to.set_word(standard::timestampFrequencyLow, ticksPerSecond);
  to.set_word(standard::pendingTimeout, pendingTimeoutMs);
  to.set_word(standard::streamCapability, gige_protocol::stream_options::extendedChunks);
  to.set_word(features::sensorWidth, setup.width);
  to.set_word(features::sensorHeight, setup.height);
}

// Settings at power-up. All others are off or 0.
void write_settings(register_memory& to, const camera_setup& setup) {
  to.set_word(standard::heartbeatTimeout, powerUpHeartbeatMs);
  to.set_word(standard::gvspConfiguration,
              setup.hasExtendedIds ? gige_protocol::gvsp_configuration::extendedIds : 0);
  to.set_word(standard::streamPacketSize, setup.packetSize);
  to.set_word(standard::streamConfiguration,
              setup.hasExtendedChunks ? gige_protocol::stream_options::extendedChunks : 0);
  to.set_number(features::gain, 1);
  to.set_number(features::gain + numberSize, 1);
  to.set_number(features::exposureTimeUs, powerUpExposureUs);
  to.set_number(features::acquisitionFrameRate, setup.framesPerSecond);
  to.set_number(features::gammaCorrection, 1);
  to.set_word(features::temperatureSelector, temperatureSelectorMainboard);
  to.set_word(features::lutMode, on);
  to.set_word(features::lutType, lutTypeGamma);
  to.set_word(features::pixelFormat, picture::pixelFormatMono8);
  to.set_word(features::width, setup.width);
  to.set_word(features::height, setup.height);
  to.set_word(features::acquisitionMode, acquisitionContinuous);
  to.set_word(features::triggerSource, triggerSourceSoftware);
  to.set_word(features::payloadSize, static_cast<std::uint32_t>(read_settings(to).payload_size()));
}

}  // namespace

register_memory power_up_memory(const camera_identity& identity, const camera_setup& setup) {
  register_memory memory(setup.descriptionName, setup.description);
  write_identity(memory, identity);
  write_capabilities(memory, setup);
  write_settings(memory, setup);
  return memory;
}

}  // namespace gvcam
