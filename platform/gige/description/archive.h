// Descriptions as they are transferred: XML, or a zip archive of it.
#ifndef PLATFORM_GIGE_DESCRIPTION_ARCHIVE_H
#define PLATFORM_GIGE_DESCRIPTION_ARCHIVE_H

#include <cstddef>
#include <string>

#include "platform/gige/description/description_error.h"

namespace gige {

// The largest description there may be, unpacked or as it is transferred. Those of cameras have some hundred
// KiB to a few MiB unpacked.
constexpr std::size_t largestDescription = 16U << 20;

// The XML: the text itself, without what fills it up to a round size, or what the zip archive holds. Raises
// description_error for an archive that is damaged, holds no XML or more than `largestDescription`, whatever
// size it declares.
std::string unpack(std::string transferred);

}  // namespace gige

#endif
