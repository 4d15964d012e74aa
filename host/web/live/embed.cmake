# Writes assets.cpp: the files of the page as arrays of bytes, and the table of their paths and types.
# Run with -DOUTPUT=... -DPAGE=DIRECTORY -DVENDOR=DIRECTORY.
set(TYPE_html "text/html; charset=utf-8")
set(TYPE_css "text/css; charset=utf-8")
set(TYPE_js "text/javascript; charset=utf-8")
set(TYPE_svg "image/svg+xml")
set(arrays "")
set(rows "")
set(number 0)
file(GLOB files ${PAGE}/*.html ${PAGE}/*.css ${PAGE}/*.js ${PAGE}/*.svg ${VENDOR}/*.css ${VENDOR}/*.js)
foreach(file ${files})
  get_filename_component(name ${file} NAME)
  get_filename_component(extension ${file} LAST_EXT)
  string(SUBSTRING ${extension} 1 -1 extension)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(APPEND arrays "constexpr unsigned char kFile${number}[] = {${bytes}};\n")
  set(path /${name})
  if(name STREQUAL "index.html")
    set(path /)
  endif()
  string(APPEND rows "    {\"${path}\", \"${TYPE_${extension}}\", text(kFile${number})},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"host/web/live/assets.h\"

#include <algorithm>
#include <array>
#include <span>

namespace host {
namespace {

${arrays}
std::string_view text(std::span<const unsigned char> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

const page_file* find_page_file(std::string_view path) {
  static const std::array<page_file, ${number}> files = {{
${rows}  }};
  const auto found = std::find_if(files.begin(), files.end(), [&](const page_file& each) { return each.path == path; });
  return found == files.end() ? nullptr : &*found;
}

}  // namespace host
")
