// Texts of cameras and files, made fit for a terminal.
#ifndef HOST_CONFIG_TEXT_H
#define HOST_CONFIG_TEXT_H

#include <string>
#include <string_view>

namespace host {

/// The text with its control characters as "\x1b", so that it can neither move a cursor nor break a line.
std::string printable(std::string_view text);

}  // namespace host

#endif
