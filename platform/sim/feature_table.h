// What features a simulated camera has: one row each.
#ifndef PLATFORM_SIM_FEATURE_TABLE_H
#define PLATFORM_SIM_FEATURE_TABLE_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/gev/value.h"

namespace sim {

constexpr std::int64_t pixelFormatMono8 = 0x01080001;   // one byte a pixel
constexpr std::int64_t pixelFormatMono10 = 0x01100003;  // two bytes a pixel, ten bits used

// Bounds of the sensor that a window of whole increments can cover, pixels.
constexpr std::int64_t widthIncrement = 16;
constexpr std::int64_t heightIncrement = 4;
constexpr std::int64_t smallestWindowSide = 64;
constexpr std::int64_t largestSensorSide = 16384;

struct feature_row {
  std::string name;
  gev::value_kind kind = gev::value_kind::integer;
  std::string unit{};
  GenApi::EAccessMode access = GenApi::RW;
  gev::value powerUp{};
  gev::value min{};
  gev::value max{};
  gev::value inc = std::int64_t{1};
  std::vector<gev::entry> entries{};
  std::string selector{};  // the enumeration that has a value of this feature for each of its entries
  std::string fitsWith{};  // of a window's offset its size, and the reverse: both together fit the sensor
  std::string category{};  // from the outermost: "Root/DeviceControl"
  bool locked = false;     // not to be written while frames are transferred
  bool measured = false;   // the camera measures it anew at every reading
};

// The rows with the defaults of the description; a camera adapts a copy of it.
const std::vector<feature_row>& feature_table();
// Null when no row has that name.
const feature_row* find_row(const std::string& name);

}  // namespace sim

#endif
