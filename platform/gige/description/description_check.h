// Keeps from ArvGc what it would not survive: ArvGc trusts every description.
#ifndef PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_CHECK_H
#define PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_CHECK_H

#include <string>
#include <string_view>

#include "platform/gige/description/description_error.h"

namespace gige {

// The description for ArvGc: the same elements, with formulas that cannot trap. It is written from the parsed
// document, so that ArvGc reads exactly what was checked. Raises description_error, with the name of the
// node, for what would crash or block ArvGc: values that lead back to themselves or to far too many others,
// lengths and polling times beyond any camera's, lengths that the camera chooses at run time, document types
// and entities, and anything too deep, too long or too many.
//
// Accepts links to missing nodes and unknown elements: ArvGc refuses such a feature at its use.
std::string checked_description(std::string_view xml);

}  // namespace gige

#endif
