#include "host/web/live/qr_code.h"

#include <qrencode.h>

#include <array>
#include <memory>

namespace host {
namespace {

constexpr int kQuietZone =
    2;  // modules around the code; readers find it with less than the four of the standard
constexpr const char* kBlackOnWhite = "\x1b[30;107m";
constexpr const char* kReset = "\x1b[0m";

}  // namespace

std::string qr_code(const std::string& text) {
  const std::unique_ptr<QRcode, void (*)(QRcode*)> code(
      QRcode_encodeString(text.c_str(), 0, QR_ECLEVEL_L, QR_MODE_8, 1), QRcode_free);
  if (!code) {
    return "";
  }
  const auto isBlack = [&](int x, int y) {
    const bool isInside = x >= 0 && y >= 0 && x < code->width && y < code->width;
    return isInside && (code->data[y * code->width + x] & 1U) != 0;
  };
  constexpr std::array kHalves = {" ", "\u2584", "\u2580", "\u2588"};  // none, lower, upper, both
  std::string lines;
  for (int y = -kQuietZone; y < code->width + kQuietZone; y += 2) {
    lines += kBlackOnWhite;
    for (int x = -kQuietZone; x < code->width + kQuietZone; ++x) {
      lines += kHalves[(isBlack(x, y) ? 2U : 0U) + (isBlack(x, y + 1) ? 1U : 0U)];
    }
    lines += kReset;
    lines += '\n';
  }
  return lines;
}

}  // namespace host
