// What the tests of the controls share.
#ifndef TESTS_SRC_CAMERA_CONTROLS_H
#define TESTS_SRC_CAMERA_CONTROLS_H

#include <memory>

#include "tests/src/bundle_fixture.h"

namespace test {

using config_view = Zavik::Support::table<property, table_like>;

class controls : public bundle_test {
 protected:
  controls() { openCamera(); }

  /// A control of type Control built from these rows.
  template <class Control>
  std::unique_ptr<Control> build(const settings& rows) {
    const table_ptr table = rows.table();
    return std::make_unique<Control>(this, config_view(table.get()));
  }
  template <class Control>
  static void setup(Control& control, const settings& rows) {
    const table_ptr table = rows.table();
    control.setup(config_view(table.get()));
  }
};

}  // namespace test

#endif
