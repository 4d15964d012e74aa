// The page and its API under /api/v1, as functions from a request to an answer.
#ifndef HOST_WEB_LIVE_LIVE_API_H
#define HOST_WEB_LIVE_LIVE_API_H

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/web/live/access.h"
#include "host/web/live/body_worker.h"
#include "host/web/live/live_run.h"
#include "host/web/live/viewers.h"
#include "host/web/message.h"

namespace host {

/// Why one of these values cannot be: "exposure_us = 200000: the camera takes 10 to 33000 us". Empty when all
/// can, and the camera has controls for them.
std::string beyond_limits(const std::vector<setting_control>& controls, const light_settings& settings);

/// Answers requests. An error is {"error": reason}. docs/live-page.md lists the requests.
class live_api {
 public:
  /// Both must outlive it.
  live_api(live_run& run, live_viewers& viewers, access_rules rules)
      : run_(run), viewers_(viewers), rules_(std::move(rules)) {}

  /// On the server's thread. Waits for nothing.
  web_answer answer(const web_request& request);

 private:
  using path_words = std::vector<std::string>;
  using handler = web_answer (live_api::*)(const web_request&, const path_words&);
  // A path: its words, "*" for any one word.
  struct route {
    const char* method;
    path_words path;
    access_need need;
    handler answer;
  };
  static const std::vector<route>& routes();

  web_answer dispatch(const web_request& request);
  web_answer cameras(const web_request& request, const path_words& path);
  web_answer camera(const web_request& request, const path_words& path);
  web_answer picture(const web_request& request, const path_words& path);
  web_answer region(const web_request& request, const path_words& path);
  web_answer keep(const web_request& request, const path_words& path);
  web_answer apply(const web_request& request, const path_words& path);
  web_answer command(const web_request& request, const path_words& path);
  web_answer log(const web_request& request, const path_words& path);
  web_answer access(const web_request& request, const path_words& path);
  web_answer events(const web_request& request, const path_words& path);
  web_answer pictures(const web_request& request, const path_words& path);
  web_answer views(const web_request& request, const path_words& path);
  web_answer metrics(const web_request& request, const path_words& path);

  live_camera find(const std::string& serial);
  shared_frame frame_of(const std::string& serial);
  web_answer pixel_answer(const char* type, std::function<std::string()> make);

  live_run& run_;
  live_viewers& viewers_;
  access_rules rules_;
  body_worker bodies_;
};

}  // namespace host

#endif
