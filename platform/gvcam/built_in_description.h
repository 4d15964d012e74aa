// The GenICam description that is part of the program.
#ifndef PLATFORM_GVCAM_BUILT_IN_DESCRIPTION_H
#define PLATFORM_GVCAM_BUILT_IN_DESCRIPTION_H

#include <string_view>

namespace gvcam {

// The text of gvcam.xml.
std::string_view built_in_description();

}  // namespace gvcam

#endif
