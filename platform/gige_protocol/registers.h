// The bootstrap registers that every GigE Vision camera has at the same place: addresses, and the bits in
// them. Registers are 32 bits wide, in big-endian byte order. The standard counts bits from the most
// significant one, the masks here are plain numbers.
#ifndef PLATFORM_GIGE_PROTOCOL_REGISTERS_H
#define PLATFORM_GIGE_PROTOCOL_REGISTERS_H

#include <cstddef>
#include <cstdint>

namespace gige_protocol {

namespace registers {

// Who the camera is. These first bytes, up to `identitySize`, are also the record that it answers to
// DISCOVERY.
constexpr std::uint32_t version = 0x0000;  // of GigE Vision: major in the upper, minor in the lower half
constexpr std::uint32_t deviceMode = 0x0004;
constexpr std::uint32_t macHigh = 0x0008;  // the first two bytes of the MAC address, in the lower half
constexpr std::uint32_t macLow = 0x000c;   // the other four
constexpr std::uint32_t supportedIpConfiguration = 0x0010;
constexpr std::uint32_t currentIpConfiguration = 0x0014;
constexpr std::uint32_t currentIp = 0x0024;
constexpr std::uint32_t currentSubnetMask = 0x0034;
constexpr std::uint32_t currentGateway = 0x0044;
constexpr std::uint32_t manufacturerName = 0x0048;  // texts; they end with a NUL or with their room
constexpr std::uint32_t modelName = 0x0068;
constexpr std::uint32_t deviceVersion = 0x0088;
constexpr std::uint32_t manufacturerInfo = 0x00a8;
constexpr std::uint32_t serialNumber = 0x00d8;
constexpr std::uint32_t userDefinedName = 0x00e8;
constexpr std::size_t identitySize = 0x00f8;

// Sizes of the texts, in bytes.
constexpr std::size_t nameSize = 32;  // manufacturer, model, device version
constexpr std::size_t infoSize = 48;
constexpr std::size_t serialSize = 16;
constexpr std::size_t userNameSize = 16;
constexpr std::size_t urlSize = 512;

// Where the GenICam description is, as "Local:camera.zip;c0000;4f2a".
constexpr std::uint32_t firstUrl = 0x0200;
constexpr std::uint32_t secondUrl = 0x0400;

// Network interfaces. The persistent address holds after the next start of the camera, if it is enabled.
constexpr std::uint32_t interfaceCount = 0x0600;
constexpr std::uint32_t persistentIp = 0x064c;
constexpr std::uint32_t persistentSubnetMask = 0x065c;
constexpr std::uint32_t persistentGateway = 0x066c;
constexpr std::uint32_t linkSpeed = 0x0670;  // Mbit/s

// What the camera has and can do.
constexpr std::uint32_t messageChannelCount = 0x0900;
constexpr std::uint32_t streamChannelCount = 0x0904;
constexpr std::uint32_t actionSignalCount = 0x0908;
constexpr std::uint32_t actionDeviceKey = 0x090c;
constexpr std::uint32_t activeLinkCount = 0x0910;
constexpr std::uint32_t gvspCapability = 0x092c;
constexpr std::uint32_t messageCapability = 0x0930;
constexpr std::uint32_t gvcpCapability = 0x0934;

// The control channel and the clock.
constexpr std::uint32_t heartbeatTimeout = 0x0938;        // milliseconds; cameras raise it to 500
constexpr std::uint32_t timestampFrequencyHigh = 0x093c;  // ticks a second; 0 without a clock
constexpr std::uint32_t timestampFrequencyLow = 0x0940;
constexpr std::uint32_t timestampControl = 0x0944;
constexpr std::uint32_t timestampHigh = 0x0948;  // ticks, as of the last latch
constexpr std::uint32_t timestampLow = 0x094c;
constexpr std::uint32_t discoveryAcknowledgeDelay = 0x0950;  // milliseconds, the most that it may take
constexpr std::uint32_t gvcpConfiguration = 0x0954;
constexpr std::uint32_t pendingTimeout = 0x0958;  // milliseconds; the longest that a command takes
constexpr std::uint32_t controlSwitchoverKey = 0x095c;
constexpr std::uint32_t gvspConfiguration = 0x0960;
constexpr std::uint32_t linkConfigurationCapability = 0x0964;
constexpr std::uint32_t linkConfiguration = 0x0968;
constexpr std::uint32_t controlChannelPrivilege = 0x0a00;
constexpr std::uint32_t primaryApplicationPort = 0x0a04;  // of the client in control
constexpr std::uint32_t primaryApplicationIp = 0x0a14;

// The message channel, which carries events.
constexpr std::uint32_t messagePort = 0x0b00;
constexpr std::uint32_t messageDestination = 0x0b10;
constexpr std::uint32_t messageTimeout = 0x0b14;  // milliseconds
constexpr std::uint32_t messageRetryCount = 0x0b18;
constexpr std::uint32_t messageSourcePort = 0x0b1c;

// The first stream channel; channel n is n times `streamChannelStride` further.
constexpr std::uint32_t streamPort = 0x0d00;         // of the receiver; 0 closes the stream
constexpr std::uint32_t streamPacketSize = 0x0d04;   // bytes with the IP and UDP headers, and bits, see below
constexpr std::uint32_t streamPacketDelay = 0x0d08;  // between two packets, ticks of the camera's clock
constexpr std::uint32_t streamDestination = 0x0d18;  // IP address of the receiver
constexpr std::uint32_t streamSourcePort = 0x0d1c;   // where the camera sends from; 0 where it does not tell
constexpr std::uint32_t streamCapability = 0x0d20;
constexpr std::uint32_t streamConfiguration = 0x0d24;
constexpr std::uint32_t streamChannelStride = 0x0040;

// Where the manufacturer's own registers begin.
constexpr std::uint32_t manufacturerSpace = 0xa000;

}  // namespace registers

namespace device_mode {
constexpr std::uint32_t bigEndian = 1U << 31;
constexpr std::uint32_t classMask = 0x7000'0000;  // 0: transmitter, which a camera is
constexpr std::uint32_t characterSetMask = 0x0000'00ff;
constexpr std::uint32_t utf8 = 1;
constexpr std::uint32_t ascii = 2;
}  // namespace device_mode

// Of supportedIpConfiguration and currentIpConfiguration.
namespace ip_configuration {
constexpr std::uint32_t linkLocal = 1U << 2;
constexpr std::uint32_t dhcp = 1U << 1;
constexpr std::uint32_t persistent = 1U << 0;
}  // namespace ip_configuration

namespace gvsp_capability {
constexpr std::uint32_t sourcePort = 1U << 31;     // streamSourcePort is there
constexpr std::uint32_t blockIds16Bit = 1U << 30;  // a camera of version 2 that can do with 16-bit block ids
}  // namespace gvsp_capability

namespace gvcp_capability {
constexpr std::uint32_t userDefinedName = 1U << 31;
constexpr std::uint32_t serialNumber = 1U << 30;
constexpr std::uint32_t heartbeatDisable = 1U << 29;
constexpr std::uint32_t linkSpeed = 1U << 28;
constexpr std::uint32_t primaryApplication = 1U << 27;  // its port and address are there
constexpr std::uint32_t manifestTable = 1U << 26;
constexpr std::uint32_t testData = 1U << 25;  // test packets hold a known pattern
constexpr std::uint32_t discoveryAcknowledgeDelay = 1U << 24;
constexpr std::uint32_t writableDiscoveryAcknowledgeDelay = 1U << 23;
constexpr std::uint32_t extendedStatusCodes = 1U << 22;  // those of version 1.1
constexpr std::uint32_t controlSwitchover = 1U << 21;
constexpr std::uint32_t unconditionalAction = 1U << 20;
constexpr std::uint32_t ieee1588 = 1U << 19;
constexpr std::uint32_t extendedStatusCodes2 = 1U << 18;  // those of version 2.0
constexpr std::uint32_t scheduledAction = 1U << 17;
constexpr std::uint32_t action = 1U << 6;
constexpr std::uint32_t pendingAcknowledge = 1U << 5;
constexpr std::uint32_t eventData = 1U << 4;
constexpr std::uint32_t event = 1U << 3;
constexpr std::uint32_t packetResend = 1U << 2;
constexpr std::uint32_t writeMemory = 1U << 1;
constexpr std::uint32_t concatenation = 1U << 0;  // several registers in one READREG or WRITEREG
}  // namespace gvcp_capability

namespace gvcp_configuration {
constexpr std::uint32_t ieee1588 = 1U << 19;
constexpr std::uint32_t extendedStatusCodes2 = 1U << 18;
constexpr std::uint32_t unconditionalAction = 1U << 3;
constexpr std::uint32_t extendedStatusCodes = 1U << 2;
constexpr std::uint32_t pendingAcknowledge = 1U << 1;
constexpr std::uint32_t heartbeatDisable = 1U << 0;
}  // namespace gvcp_configuration

namespace gvsp_configuration {
constexpr std::uint32_t extendedIds = 1U << 30;  // 64-bit block ids and 32-bit packet ids, on every stream
}  // namespace gvsp_configuration

namespace timestamp_control {
constexpr std::uint32_t latch = 1U << 1;
constexpr std::uint32_t reset = 1U << 0;
}  // namespace timestamp_control

// Of controlChannelPrivilege: who may write. Nobody has control when all three are clear.
namespace control_privilege {
constexpr std::uint32_t exclusive = 1U << 0;          // nobody else may even read
constexpr std::uint32_t control = 1U << 1;            // others may read
constexpr std::uint32_t switchoverEnabled = 1U << 2;  // another client with the key may take control
}  // namespace control_privilege

namespace stream_port {
constexpr std::uint32_t portMask = 0x0000'ffff;
constexpr std::uint32_t interfaceMask = 0x000f'0000;
}  // namespace stream_port

namespace packet_size {
constexpr std::uint32_t fireTestPacket = 1U << 31;  // a write with it sends one test packet; reads as 0
constexpr std::uint32_t doNotFragment = 1U << 30;
constexpr std::uint32_t bigEndianPixels = 1U << 29;
constexpr std::uint32_t sizeMask = 0x0000'ffff;
}  // namespace packet_size

// Of streamCapability (it can) and streamConfiguration (it does).
namespace stream_options {
constexpr std::uint32_t bigAndLittleEndian = 1U << 31;  // capability only
constexpr std::uint32_t ipReassembly = 1U << 30;        // capability only
constexpr std::uint32_t multiPart = 1U << 6;
constexpr std::uint32_t largeLeader = 1U << 5;
constexpr std::uint32_t multiZone = 1U << 4;  // capability only
constexpr std::uint32_t resendDestination =
    1U << 3;                              // packets are sent again to who asks, not to streamDestination
constexpr std::uint32_t allIn = 1U << 2;  // small frames in one packet
constexpr std::uint32_t unconditional = 1U << 1;  // goes on when the client in control is gone
constexpr std::uint32_t extendedChunks = 1U << 0;
}  // namespace stream_options

}  // namespace gige_protocol

#endif
