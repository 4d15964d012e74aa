#include "host/web/live/live_api.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "host/acquire/limits.h"
#include "host/outputs/image_files.h"
#include "host/web/live/assets.h"
#include "host/web/live/jpeg.h"
#include "host/web/live/keep.h"
#include "host/web/live/live_json.h"
#include "host/web/live/png_text.h"

namespace host {
namespace {

using json = nlohmann::json;
using ordered_json = nlohmann::ordered_json;

constexpr std::size_t kNameMax = 40;  // bytes of a person's name
constexpr std::size_t kViewerMax = 64;
constexpr int kPictureQuality = 90;
constexpr const char* kViewers = "viewers are connected";
constexpr const char* kJson = "application/json";
constexpr const char* kToml = "application/toml; charset=utf-8";

// A request that is answered with an error.
struct api_error {
  int status;
  std::string reason;
  bool isRepeatable = false;  // it may work in a second
};

// Texts of clients and cameras may be no UTF-8.
std::string text_of(const ordered_json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

web_answer error_answer(const api_error& error) {
  web_answer answer;
  answer.status = error.status;
  answer.body = text_of({{"error", error.reason}});
  if (error.status == 401) {
    answer.headers.emplace_back("WWW-Authenticate", "Bearer");
  }
  if (error.isRepeatable) {
    answer.headers.emplace_back("Retry-After", "1");
  }
  return answer;
}

web_answer json_answer(std::string body, int status = 200) {
  web_answer answer;
  answer.status = status;
  answer.body = std::move(body);
  return answer;
}

// `stream` is null where `most` of `what` are the limit.
web_answer stream_answer(const char* type, std::shared_ptr<web_stream> stream, const char* what,
                         std::size_t most) {
  if (!stream) {
    throw api_error{503, fmt::format("{} {} already; ask again in a second", most, what), true};
  }
  web_answer answer;
  answer.type = type;
  answer.stream = std::move(stream);
  return answer;
}

// What every answer carries: a page of this server runs its own scripts only, talks to nobody else, and
// stands in nobody's frame.
void add_security_headers(web_answer& answer) {
  for (const auto& [name, value] :
       {std::pair{"Content-Security-Policy",
                  "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
                  "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"}}) {
    answer.headers.emplace_back(name, value);
  }
}

std::vector<std::string> words_of(const std::string& path) {
  std::vector<std::string> words;
  for (std::size_t at = 1; at <= path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    words.push_back(path.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

bool matches(const std::vector<std::string>& pattern, const std::vector<std::string>& words) {
  return std::equal(pattern.begin(), pattern.end(), words.begin(), words.end(),
                    [](const std::string& wanted, const std::string& word) {
                      return wanted == word || (wanted == "*" && !word.empty());
                    });
}

// A whole number of the query; `otherwise` when it is left out.
int number(const web_request& request, const char* name, int otherwise, int most = kCoordinateMax) {
  const std::string text = request.parameter(name);
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty()) {
    return otherwise;
  }
  if (error != std::errc() || end != text.data() + text.size() || value < 0 || value > most) {
    throw api_error{400, fmt::format("'{}' must be a whole number from 0 to {}", name, most)};
  }
  return value;
}

rectangle part_of(const web_request& request, const grey_image& image) {
  const int x = number(request, "x", 0);
  const int y = number(request, "y", 0);
  const rectangle part = {x, y, number(request, "width", image.width - x),
                          number(request, "height", image.height - y)};
  if (part.width < 1 || part.height < 1 || x + part.width > image.width || y + part.height > image.height) {
    throw api_error{422, fmt::format("x, y, width and height must lie in the picture of {} x {}", image.width,
                                     image.height)};
  }
  return part;
}

json body_of(const web_request& request) {
  json body = json::parse(request.body.empty() ? "{}" : request.body, nullptr, false);
  if (!body.is_object()) {
    throw api_error{400, "the body must be a JSON object"};
  }
  return body;
}

// Who asks: the address, and the name if one was entered.
std::string author_of(const web_request& request, const json& body) {
  const auto name = body.find("by");
  if (name == body.end()) {
    return request.peer;
  }
  const bool isName = name->is_string() && name->get_ref<const std::string&>().size() <= kNameMax;
  const std::string text = isName ? name->get<std::string>() : "";
  if (!isName || std::any_of(text.begin(), text.end(),
                             [](unsigned char letter) { return letter < ' ' || letter == 0x7f; })) {
    throw api_error{400, fmt::format("'by' must be a name of at most {} bytes", kNameMax)};
  }
  return text.empty() ? request.peer : fmt::format("{} ({})", text, request.peer);
}

light_settings settings_of(const json& body) {
  light_settings settings;
  for (const auto& [key, value] : body.items()) {
    if (key == "by") {
      continue;
    }
    std::optional<float>* const number = key == "exposure_us" ? &settings.exposureUs
                                         : key == "gain_db"   ? &settings.gainDb
                                         : key == "gamma"     ? &settings.gamma
                                                              : nullptr;
    if (number != nullptr && value.is_number()) {
      *number = value.get<float>();
    } else if (key == "ir_level" && value.is_number_integer()) {
      settings.irLevel = value.get<std::int64_t>();
    } else {
      throw api_error{400,
                      fmt::format("'{}' can't be applied: settings are the numbers exposure_us, gain_db and "
                                  "gamma, and the whole number ir_level",
                                  key.substr(0, kNameMax))};
    }
  }
  if (settings == light_settings{}) {
    throw api_error{400, "there must be one of exposure_us, gain_db, gamma, ir_level"};
  }
  return settings;
}

std::optional<double> value_of(const light_settings& settings, const std::string& key) {
  const auto widened = [](const auto& value) {
    return value ? std::optional(static_cast<double>(*value)) : std::nullopt;
  };
  if (key == "exposure_us") {
    return widened(settings.exposureUs);
  }
  if (key == "gain_db") {
    return widened(settings.gainDb);
  }
  return key == "gamma" ? widened(settings.gamma) : widened(settings.irLevel);
}

// Why a control does not take a value; none when it does.
std::optional<std::string> refusal_of(const setting_control& control, double value) {
  const setting_limits& limits = control.limits;
  if (limits.areOfCamera) {
    return refusal(control.key.c_str(), value, {limits.min, limits.max});
  }
  if (value >= limits.min && value <= limits.max) {
    return std::nullopt;
  }
  return fmt::format("{} = {:.6g}: a configuration may have {:.6g} to {:.6g}", control.key, value, limits.min,
                     limits.max);
}

web_answer entry_answer(const queue_answer& answer) {
  if (!answer.reasons.empty()) {
    throw api_error{422, fmt::format("{}", fmt::join(answer.reasons, "; "))};
  }
  return json_answer(ordered_json{{"entry", answer.id}}.dump(), 202);
}

std::vector<std::pair<std::string, std::string>> picture_texts(const std::string& serial,
                                                               const stored_frame& frame) {
  return {{"Camera", serial},
          {"Frame", std::to_string(frame.number)},
          {"Timestamp_us", std::to_string(frame.info.timestampUs)},
          {"Exposure_us", fmt::format("{}", frame.info.exposureUs)},
          {"Gain_dB", fmt::format("{}", frame.info.gainDb)}};
}

std::string png_file(const std::string& serial, const stored_frame& frame) {
  const auto bytes = with_texts(encode(frame, image_format::png), picture_texts(serial, frame));
  return {bytes.begin(), bytes.end()};
}

std::string jpeg_file(const stored_frame& frame, int width) {
  const grey_image image = image_of(frame);
  return encode_jpeg(scaled(image, {0, 0, image.width, image.height}, width, false), kPictureQuality);
}

std::string region_json(const std::string& serial, const stored_frame& frame, const rectangle& part) {
  const grey_image image = image_of(frame);
  const image_histogram histogram(image, part);
  return text_of({{"camera", serial},
                  {"frame", frame.number},
                  {"part", {part.x, part.y, part.width, part.height}},
                  {"mean", histogram.mean()},
                  {"black", histogram.share(kBlack)},
                  {"white", histogram.share(kWhite)},
                  {"sharpness", sharpness(image, part)},
                  {"histogram", histogram.counts()}});
}

// A serial number as a part of a file's name.
std::string file_name(const std::string& serial, std::uint64_t frame, const char* extension) {
  std::string name = serial;
  std::replace_if(
      name.begin(), name.end(),
      [](unsigned char letter) { return std::isalnum(letter) == 0 && letter != '-' && letter != '_'; }, '_');
  return fmt::format("attachment; filename=\"{}-{}.{}\"", name, frame, extension);
}

}  // namespace

std::string beyond_limits(const std::vector<setting_control>& controls, const light_settings& settings) {
  for (const char* key : {"exposure_us", "gain_db", "gamma", "ir_level"}) {
    const std::optional<double> value = value_of(settings, key);
    if (!value) {
      continue;
    }
    const auto control = std::find_if(controls.begin(), controls.end(),
                                      [&](const setting_control& each) { return each.key == key; });
    if (control == controls.end()) {
      return fmt::format("{}: the camera has no such setting", key);
    }
    if (const auto line = refusal_of(*control, *value)) {
      return *line;
    }
  }
  return "";
}

const std::vector<live_api::route>& live_api::routes() {
  using enum access_need;
  static const std::vector<route> all = {
      {"GET", {"api", "v1", "access"}, open, &live_api::access},
      {"GET", {"api", "v1", "cameras"}, look, &live_api::cameras},
      {"GET", {"api", "v1", "cameras", "*"}, look, &live_api::camera},
      {"GET", {"api", "v1", "cameras", "*", "picture"}, look, &live_api::picture},
      {"GET", {"api", "v1", "cameras", "*", "region"}, look, &live_api::region},
      {"GET", {"api", "v1", "cameras", "*", "keep"}, look, &live_api::keep},
      {"GET", {"api", "v1", "log"}, look, &live_api::log},
      {"GET", {"api", "v1", "events"}, look, &live_api::events},
      {"GET", {"api", "v1", "pictures"}, look, &live_api::pictures},
      {"POST", {"api", "v1", "views"}, look, &live_api::views},
      {"GET", {"metrics"}, look, &live_api::metrics},
      {"POST", {"api", "v1", "cameras", "*", "settings"}, change, &live_api::apply},
      {"POST", {"api", "v1", "cameras", "*", "undo"}, change, &live_api::command},
      {"POST", {"api", "v1", "cameras", "*", "configuration"}, change, &live_api::command},
      {"POST", {"api", "v1", "cameras", "*", "resume"}, change, &live_api::command}};
  return all;
}

web_answer live_api::answer(const web_request& request) {
  web_answer result;
  try {
    result = dispatch(request);
  } catch (const api_error& error) {
    result = error_answer(error);
  } catch (const request_error& error) {
    result = error_answer({400, error.what()});
  } catch (const std::exception& error) {
    result = error_answer({500, error.what(), true});
  }
  add_security_headers(result);
  return result;
}

web_answer live_api::dispatch(const web_request& request) {
  if (const page_file* file = find_page_file(request.path); file != nullptr && request.method == "GET") {
    web_answer answer;
    answer.type = file->type;
    answer.body = file->content;
    return answer;
  }
  const path_words words = words_of(request.path);
  const route* found = nullptr;
  for (const route& each : routes()) {
    if (matches(each.path, words)) {
      found = &each;
    }
  }
  const access_need need = found == nullptr ? access_need::look : found->need;
  if (const auto refused = rules_.refuse(request, need)) {
    throw api_error{refused->status, refused->reason};
  }
  if (found == nullptr) {
    throw api_error{404, "there is nothing at this path; /api/v1/cameras is where the API begins"};
  }
  if (request.method != found->method) {
    throw api_error{405, fmt::format("only {} is for this path", found->method)};
  }
  return (this->*found->answer)(request, words);
}

web_answer live_api::access(const web_request& request, const path_words&) {
  const bool mayLook = !rules_.refuse(request, access_need::look);
  const std::string why = rules_.look_only_reason(request);
  return json_answer(
      text_of({{"may_look", mayLook}, {"may_change", why.empty()}, {"look_only_reason", why}}));
}

web_answer live_api::cameras(const web_request&, const path_words&) {
  return json_answer(cameras_json(run_.cameras()));
}

live_camera live_api::find(const std::string& serial) {
  std::vector<live_camera> all = run_.cameras();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const live_camera& each) { return each.serial == serial; });
  if (found == all.end()) {
    throw api_error{404, fmt::format("no camera '{}' is running", serial.substr(0, kViewerMax))};
  }
  return std::move(*found);
}

web_answer live_api::camera(const web_request&, const path_words& path) {
  return json_answer(camera_json(find(path[3])));
}

shared_frame live_api::frame_of(const std::string& serial) {
  const std::shared_ptr<preview_source> source = run_.preview(serial);
  if (!source) {
    throw api_error{404, fmt::format("no camera '{}' is running", serial.substr(0, kViewerMax))};
  }
  source->request_copies();
  shared_frame frame = source->newest();
  if (!frame) {
    throw api_error{503, "no frame was copied yet; ask again in a second", true};
  }
  return frame;
}

// An answer whose body takes the processor for a while.
web_answer live_api::pixel_answer(const char* type, std::function<std::string()> make) {
  return stream_answer(type, bodies_.start(std::move(make)), "pictures are being sent",
                       body_worker::kBodiesMax);
}

web_answer live_api::picture(const web_request& request, const path_words& path) {
  const std::string format = request.parameter("format");
  const bool isJpeg = format == "jpg";
  if (!isJpeg && !format.empty() && format != "png") {
    throw api_error{400, "'format' must be png or jpg"};
  }
  const shared_frame frame = frame_of(path[3]);
  const int width = std::max(1, number(request, "width", frame->info.width));
  web_answer answer =
      isJpeg ? pixel_answer("image/jpeg", [=] { return jpeg_file(*frame, width); })
             : pixel_answer("image/png", [=, serial = path[3]] { return png_file(serial, *frame); });
  answer.headers.emplace_back("Content-Disposition",
                              file_name(path[3], frame->number, isJpeg ? "jpg" : "png"));
  return answer;
}

web_answer live_api::region(const web_request& request, const path_words& path) {
  const shared_frame frame = frame_of(path[3]);
  const grey_image image = image_of(*frame);
  const rectangle part = part_of(request, image);
  return pixel_answer(kJson, [=, serial = path[3]] { return region_json(serial, *frame, part); });
}

web_answer live_api::keep(const web_request&, const path_words& path) {
  web_answer answer;
  answer.type = kToml;
  answer.body = kept_toml(find(path[3]), run_.config_name());
  return answer;
}

web_answer live_api::apply(const web_request& request, const path_words& path) {
  const json body = body_of(request);
  const light_settings settings = settings_of(body);
  const std::string author = author_of(request, body);
  if (const std::string beyond = beyond_limits(find(path[3]).controls, settings); !beyond.empty()) {
    throw api_error{422, beyond};
  }
  return entry_answer(run_.apply(path[3], settings, author));
}

web_answer live_api::command(const web_request& request, const path_words& path) {
  const std::string author = author_of(request, body_of(request));
  const settings_command what = path[4] == "undo"     ? settings_command::undo
                                : path[4] == "resume" ? settings_command::resume
                                                      : settings_command::configuration;
  find(path[3]);
  return entry_answer(run_.command(path[3], what, author));
}

web_answer live_api::log(const web_request& request, const path_words&) {
  const int level = number(request, "level", log_tail::kLevelMax);
  const int after = number(request, "after", 0, std::numeric_limits<int>::max());
  return json_answer(
      log_json(run_.log().since(static_cast<std::uint64_t>(after), level, request.parameter("camera"))));
}

web_answer live_api::events(const web_request& request, const path_words&) {
  return stream_answer("text/event-stream",
                       viewers_.open_events(request.parameter("viewer").substr(0, kViewerMax)), kViewers,
                       live_viewers::kViewersMax);
}

web_answer live_api::pictures(const web_request& request, const path_words&) {
  const std::string views = request.parameter("views");
  return stream_answer("application/octet-stream",
                       viewers_.open_pictures(request.parameter("viewer").substr(0, kViewerMax),
                                              parse_views(views.empty() ? "[]" : views)),
                       kViewers, live_viewers::kViewersMax);
}

web_answer live_api::views(const web_request& request, const path_words&) {
  if (!viewers_.set_views(request.parameter("viewer").substr(0, kViewerMax), parse_views(request.body))) {
    throw api_error{404, "no viewer of that name gets pictures"};
  }
  return json_answer("{}");
}

web_answer live_api::metrics(const web_request&, const path_words&) {
  web_answer answer;
  answer.type = "text/plain; version=0.0.4";
  answer.body = run_.metrics();
  return answer;
}

}  // namespace host
