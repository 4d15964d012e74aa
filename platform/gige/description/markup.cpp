#include "platform/gige/description/markup.h"

#include <cstddef>
#include <string>

#include "platform/gige/description/description_error.h"

namespace gige {
namespace {

// The largest descriptions of cameras have some ten thousand elements, of two or three attributes.
constexpr std::size_t mostElements = 200'000;
constexpr std::size_t mostAttributes = 32;  // of one element; the parser compares each with all others

// Markup that is no element, with its first and last characters.
struct section {
  std::string_view begin;
  std::string_view end;
};
constexpr section sections[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};

// The position behind `end`; the end of the text where there is none, which the parser will refuse.
std::size_t after(std::string_view end, std::string_view xml, std::size_t at) {
  const std::size_t found = xml.find(end, at);
  return found == std::string_view::npos ? xml.size() : found + end.size();
}

std::size_t after_tag(std::string_view xml, std::size_t at) {
  std::size_t attributes = 0;
  while (at < xml.size() && xml[at] != '>') {
    const char c = xml[at++];
    if (c == '"' || c == '\'') {
      at = after(std::string_view(&c, 1), xml, at);
      if (++attributes > mostAttributes) {
        throw description_error("an element of the description has more than " +
                                std::to_string(mostAttributes) + " attributes");
      }
    }
  }
  return at;
}

// Skips an element's tag, or a whole comment, CDATA section or processing instruction.
std::size_t after_markup(std::string_view xml, std::size_t at) {
  for (const section& each : sections) {
    if (xml.substr(at).starts_with(each.begin)) {
      return after(each.end, xml, at + each.begin.size());
    }
  }
  if (xml.substr(at).starts_with("<!")) {
    throw description_error("the description declares a document type; it may hold elements only");
  }
  return after_tag(xml, at);
}

}  // namespace

void check_markup(std::string_view xml) {
  std::size_t tags = 0;
  for (std::size_t at = xml.find('<'); at < xml.size(); at = xml.find('<', at)) {
    at = after_markup(xml, at);
    if (++tags > 2 * mostElements) {
      throw description_error("the description has more than " + std::to_string(mostElements) + " elements");
    }
  }
}

}  // namespace gige
