// A link for the camera of a phone.
#ifndef HOST_WEB_LIVE_QR_CODE_H
#define HOST_WEB_LIVE_QR_CODE_H

#include <string>

namespace host {

/// The text as a QR code for a terminal, in lines of half blocks with a newline each: black on white whatever
/// the terminal's colours are. Empty when the text does not fit into one.
std::string qr_code(const std::string& text);

}  // namespace host

#endif
