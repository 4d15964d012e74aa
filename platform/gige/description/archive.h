// Descriptions as they are transferred: XML, or a zip archive of it.
#ifndef PLATFORM_GIGE_DESCRIPTION_ARCHIVE_H
#define PLATFORM_GIGE_DESCRIPTION_ARCHIVE_H

#include <cstddef>
#include <string>

#include "platform/gige/description/description_error.h"

namespace gige {

// The largest description in bytes, both transferred and unpacked. Those of cameras have some hundred KiB to
// a few MiB unpacked. (libxml2 refuses XML beyond 10 MB.)
constexpr std::size_t largestDescription = 16U << 20;

// The XML of a transferred description: the text without its padding of NULs, or the XML file in the zip
// archive. Raises description_error for an archive that is damaged, or holds no XML or more than
// `largestDescription` bytes, whatever size it declares.
std::string unpack(std::string transferred);

}  // namespace gige

#endif
