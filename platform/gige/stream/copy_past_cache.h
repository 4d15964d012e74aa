// Copies what is not read again soon.
#ifndef PLATFORM_GIGE_STREAM_COPY_PAST_CACHE_H
#define PLATFORM_GIGE_STREAM_COPY_PAST_CACHE_H

#include <cstddef>
#include <cstdint>

namespace gige {

// As memcpy, but the copy goes to memory and not to the processor's cache: it is not read before it is
// written, which halves the traffic, and pushes nothing else out. Pays where the source is not in the cache
// either. Other threads see the copy once `finish_copies` was called. Just memcpy on processors that cannot
// do it.
void copy_past_cache(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes);
void finish_copies();

}  // namespace gige

#endif
