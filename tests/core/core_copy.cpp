// A copy of the property table in a library of its own, as a host that links `core` has one.
#include "core/table.h"

extern "C" __attribute__((visibility("default"))) Zavik::Support::rw_table_like* make_table() {
  return Zavik::Support::Table__Create();
}
