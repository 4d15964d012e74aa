// Copies what is not read again soon.
#ifndef PLATFORM_GIGE_STREAM_COPY_PAST_CACHE_H
#define PLATFORM_GIGE_STREAM_COPY_PAST_CACHE_H

#include <cstddef>
#include <cstdint>

namespace gige {

// As memcpy, with non-temporal stores: the copy goes to memory, not to the processor's cache. The processor
// does not read the target before it writes to it, which halves the traffic, and evicts nothing from the
// cache. Worth it when the source is not in the cache either. Other threads see the copy after
// `finish_copies`. Processors without such stores use memcpy.
void copy_past_cache(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes);
void finish_copies();

}  // namespace gige

#endif
