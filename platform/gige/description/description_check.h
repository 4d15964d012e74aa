// What ArvGc may be given to read: it trusts what a description says.
#ifndef PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_CHECK_H
#define PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_CHECK_H

#include <string>
#include <string_view>

#include "platform/gige/description/description_error.h"

namespace gige {

// The description as ArvGc is to read it: the same elements, written anew from what the check saw, with
// formulas that cannot trap. Raises description_error, with the name of the node that is wrong, for what
// ArvGc would not survive or not come to an end with: nodes whose values lead back to themselves or to far
// too many others, lengths and polling times beyond any camera's, lengths that the camera may choose,
// document types and entities, and whatever is too deep, too long or too many.
//
// Links to no node and elements that nobody knows pass: ArvGc refuses the feature when it is used.
std::string checked_description(std::string_view xml);

}  // namespace gige

#endif
