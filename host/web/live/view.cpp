#include "host/web/live/view.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/web/live/jpeg.h"

namespace host {
namespace {

using json = nlohmann::json;
using ordered_json = nlohmann::ordered_json;

constexpr int kJpegQuality = 80;
constexpr const char* kViewShape =
    "a view is an object with 'camera' (text), 'width' (whole number), 'part', 'focus', 'pointer', "
    "'clipping' and 'details'";

// The whole numbers from 0 to 65535 of an array of `count` of them.
std::vector<int> numbers(const json& value, const char* key, std::size_t count) {
  const bool isArray = value.is_array() && value.size() == count &&
                       std::all_of(value.begin(), value.end(), [](const json& each) {
                         return each.is_number_unsigned() && each.get<std::uint64_t>() <= kCoordinateMax;
                       });
  if (!isArray) {
    throw request_error(
        fmt::format("'{}' must be {} whole numbers from 0 to {}", key, count, kCoordinateMax));
  }
  return value.get<std::vector<int>>();
}

rectangle rectangle_of(const json& value, const char* key) {
  const std::vector<int> all = numbers(value, key, 4);
  return {all[0], all[1], all[2], all[3]};
}

bool flag(const json& value, const char* key) {
  if (!value.is_boolean()) {
    throw request_error(fmt::format("'{}' must be true or false", key));
  }
  return value.get<bool>();
}

void take(camera_view& view, const std::string& key, const json& value) {
  if (key == "camera" && value.is_string()) {
    view.serial = value.get<std::string>();
  } else if (key == "width" && value.is_number_unsigned()) {
    view.width = static_cast<int>(std::clamp<std::uint64_t>(value.get<std::uint64_t>(), 1, kPictureWidthMax));
  } else if (key == "part") {
    view.part = rectangle_of(value, "part");
  } else if (key == "focus") {
    view.focus = rectangle_of(value, "focus");
  } else if (key == "pointer") {
    const std::vector<int> all = numbers(value, "pointer", 2);
    view.pointer = point{all[0], all[1]};
  } else if (key == "clipping") {
    view.marksClipping = flag(value, "clipping");
  } else if (key == "details") {
    view.wantsDetails = flag(value, "details");
  } else {
    throw request_error(kViewShape);
  }
}

ordered_json array_of(const rectangle& part) {
  return {part.x, part.y, part.width, part.height};
}

}  // namespace

std::vector<camera_view> parse_views(const std::string& text) {
  const json parsed = json::parse(text, nullptr, false);
  if (!parsed.is_array() || parsed.size() > kViewsMax) {
    throw request_error(fmt::format("views are a JSON array of at most {} objects", kViewsMax));
  }
  std::vector<camera_view> views;
  for (const json& each : parsed) {
    if (!each.is_object()) {
      throw request_error(kViewShape);
    }
    camera_view& view = views.emplace_back();
    for (const auto& [key, value] : each.items()) {
      take(view, key, value);
    }
  }
  return views;
}

std::string picture_maker::make(const camera_view& view, const stored_frame& frame) {
  const grey_image image = image_of(frame);
  const rectangle whole = {0, 0, image.width, image.height};
  const rectangle part = view.part ? clipped(*view.part, image) : whole;
  const std::string& jpeg = jpeg_of(view, frame, part);
  const image_histogram& histogram = histogram_of(view, frame);
  ordered_json head = {{"camera", view.serial},
                       {"frame", frame.number},
                       {"timestamp_us", frame.info.timestampUs},
                       {"width", image.width},
                       {"height", image.height},
                       {"part", array_of(part)},
                       {"exposure_us", frame.info.exposureUs},
                       {"gain_db", frame.info.gainDb},
                       {"mean", histogram.mean()},
                       {"black", histogram.share(kBlack)},
                       {"white", histogram.share(kWhite)}};
  if (view.wantsDetails) {
    head["histogram"] = histogram.counts();
  }
  if (view.focus) {
    const rectangle focus = clipped(*view.focus, image);
    head["focus"] = array_of(focus);
    head["sharpness"] = sharpness(image, focus);
  }
  const auto grey = view.pointer ? grey_at(image, *view.pointer) : std::nullopt;
  if (grey) {
    head["pointer"] = {view.pointer->x, view.pointer->y, *grey};
  }
  head["bytes"] = jpeg.size();
  return head.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n" + jpeg;
}

const std::string& picture_maker::jpeg_of(const camera_view& view, const stored_frame& frame,
                                          const rectangle& part) {
  const jpeg_key key = {view.serial, frame.number, part.x,     part.y,
                        part.width,  part.height,  view.width, view.marksClipping};
  const auto [found, isNew] = jpegs_.try_emplace(key);
  if (isNew) {
    found->second = encode_jpeg(scaled(image_of(frame), part, view.width, view.marksClipping), kJpegQuality);
  }
  return found->second;
}

const image_histogram& picture_maker::histogram_of(const camera_view& view, const stored_frame& frame) {
  const grey_image image = image_of(frame);
  return histograms_
      .try_emplace({view.serial, frame.number}, image, rectangle{0, 0, image.width, image.height})
      .first->second;
}

}  // namespace host
