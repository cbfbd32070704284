#include "CaptureShared/Records/ClassifierTick.h"

#include "CaptureShared/Foundation/JSONParse.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Records/DateParseMemo.h"

namespace halvo {

namespace {

/// Up to here a JSON number is the same for every reader, and what is read is written again. No moment lies beyond.
constexpr std::int64_t largestExact = std::int64_t{1} << 53;

}  // namespace

std::optional<std::int64_t> ClassifierTick::atMs() const { return DateParseMemo::milliseconds(at); }

std::string ClassifierTick::encode() const {
  JSONObject row;
  row.set("at", at);
  auto put = [&](const char* key, const auto& field) {
    if (field) row.set(key, *field);
  };
  put("state", state);
  put("frontmost_app", frontmostApp);
  put("frontmost_window_title", frontmostWindowTitle);
  put("browser_title", browserTitle);
  put("reason", reason);
  put("confidence", confidence);
  put("declared_task", declaredTask);
  put("model", model);
  put("screenshot_at_ms", screenshotAtMs);
  put("reason_check", reasonCheck);
  put("content_withheld_for_denylist", contentWithheldForDenylist);
  return JSONValue(std::move(row)).dump();
}

std::optional<ClassifierTick> ClassifierTick::decode(std::string_view line) {
  thread_local simdjson::dom::parser parser;
  simdjson::dom::object row;
  std::optional<ClassifierTick> result;
  if (parser.parse(line.data(), line.size()).get_object().get(row)) return result;
  auto& tick = result.emplace();  // in its final place: a row of a dozen texts is not moved for nothing
  bool hasAt = false;
  for (const auto field : row) {
    const std::string_view key = field.key;
    const auto value = field.value;
    std::string_view text;
    auto take = [&](std::optional<std::string>& into) {
      if (!value.get_string().get(text)) into.emplace(text);
    };
    if (key == "at") {
      if (!value.get_string().get(text)) tick.at = text, hasAt = true;
    } else if (key == "state") {
      take(tick.state);
    } else if (key == "reason") {
      take(tick.reason);
    } else if (key == "frontmost_app") {
      take(tick.frontmostApp);
    } else if (key == "frontmost_window_title") {
      take(tick.frontmostWindowTitle);
    } else if (key == "declared_task") {
      take(tick.declaredTask);
    } else if (key == "browser_title") {
      take(tick.browserTitle);
    } else if (key == "model") {
      take(tick.model);
    } else if (key == "reason_check") {
      take(tick.reasonCheck);
    } else if (key == "content_withheld_for_denylist") {
      take(tick.contentWithheldForDenylist);
    } else if (key == "confidence") {
      double number;
      if (!value.get_double().get(number)) tick.confidence = number;
    } else if (key == "screenshot_at_ms") {
      std::int64_t number;
      if (!value.get_int64().get(number) && -largestExact <= number && number <= largestExact) tick.screenshotAtMs = number;
    }
  }
  if (!hasAt) result.reset();
  return result;
}

}  // namespace halvo
