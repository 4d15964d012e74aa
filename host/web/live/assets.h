// The files of the page, embedded into the program.
#ifndef HOST_WEB_LIVE_ASSETS_H
#define HOST_WEB_LIVE_ASSETS_H

#include <string_view>

namespace host {

struct page_file {
  std::string_view path;  ///< "/live.js"; "/" is the page
  std::string_view type;  ///< "text/javascript; charset=utf-8"
  std::string_view content;
};

/// Null when there is none.
const page_file* find_page_file(std::string_view path);

}  // namespace host

#endif
