// Whether a description can be given to ArvGc, which trusts what it reads.
#ifndef PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_CHECK_H
#define PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_CHECK_H

#include <string_view>

#include "platform/gige/description/description_error.h"

namespace gige {

// Raises description_error, with the name of the node that is wrong, for a text that ArvGc would not survive
// or not come to an end with: nodes whose values lead back to themselves, links to no node, numbers beyond
// what a camera can have, elements that it does not know where it takes each for granted, document types and
// entities, and whatever is too deep, too long or too many. Reads the text the way ArvGc does, by libxml2.
void check_description(std::string_view xml);

}  // namespace gige

#endif
