# What the tests of all folders share.
find_package(GTest REQUIRED)
include(GoogleTest)

# Tests compile in half the time without optimisation; what they test keeps its own.
set(TEST_OPTIONS -O0)

# A property of tests in whose process cameras' descriptions are read, by libraries that the thread sanitizer does not see.
set(DESCRIPTION_READERS)
if(DRIVER_DALSA_SANITIZE MATCHES thread)
  set(DESCRIPTION_READERS ENVIRONMENT "TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/thread.supp")
endif()

# The tests of a program that makes a network namespace for itself; further arguments are properties of the tests. Who is not
# root may make one only inside a user namespace, and gets that first.
execute_process(COMMAND id -u OUTPUT_VARIABLE USER_ID)
function(discover_network_tests target)
  if(USER_ID GREATER 0)
    set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "unshare;--map-root-user")
  endif()
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 ${ARGN})
endfunction()
