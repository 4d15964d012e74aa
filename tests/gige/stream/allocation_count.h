// How often the program has allocated memory so far, on any thread.
#ifndef TESTS_GIGE_STREAM_ALLOCATION_COUNT_H
#define TESTS_GIGE_STREAM_ALLOCATION_COUNT_H

#include <cstddef>

std::size_t allocation_count();

#endif
