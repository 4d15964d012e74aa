// A first look at XML, before a parser builds anything from it.
#ifndef PLATFORM_GIGE_DESCRIPTION_MARKUP_H
#define PLATFORM_GIGE_DESCRIPTION_MARKUP_H

#include <string_view>

namespace gige {

// Raises description_error for a text with more elements or attributes than a parser should be asked to hold,
// and for one with a document type, which could define entities. Takes one pass and no memory.
void check_markup(std::string_view xml);

}  // namespace gige

#endif
