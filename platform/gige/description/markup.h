// Limits for XML that hold before a parser allocates anything for it.
#ifndef PLATFORM_GIGE_DESCRIPTION_MARKUP_H
#define PLATFORM_GIGE_DESCRIPTION_MARKUP_H

#include <string_view>

namespace gige {

// Raises description_error for more elements or attributes than a parser should hold, and for a document
// type, which could define entities. Takes one pass and no memory.
void check_markup(std::string_view xml);

}  // namespace gige

#endif
