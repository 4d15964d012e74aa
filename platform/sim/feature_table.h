// The features of a simulated camera: a row for each.
#ifndef PLATFORM_SIM_FEATURE_TABLE_H
#define PLATFORM_SIM_FEATURE_TABLE_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/gev/value.h"

namespace sim {

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
  std::string selector{};   // an enumeration; the feature has a value for each of its entries
  std::string fitsWith{};   // for an offset the size, for a size the offset: together they fit on the sensor
  std::string category{};   // the path: "Root/DeviceControl"
  bool isLocked = false;    // cannot be written while frames are transferred
  bool isMeasured = false;  // every read measures it
};

// All rows, with the values of a description that says nothing. Each camera adapts a copy.
const std::vector<feature_row>& feature_table();
// The row of that name; null when there is none.
const feature_row* find_row(const std::string& name);

}  // namespace sim

#endif
