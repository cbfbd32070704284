#include "CaptureShared/Records/ClassifierFrameInstant.h"

#include <fmt/format.h>

namespace halvo {

ClassifierFrameInstant ClassifierFrameInstant::resolve(std::optional<std::int64_t> screenshotAtMs, std::int64_t loggedMs) {
  if (screenshotAtMs) return {.ms = *screenshotAtMs, .source = Source::screenshot};
  return {.ms = loggedMs, .source = Source::loggedAtFallback};
}

std::string ClassifierFrameInstant::disclosure(std::int64_t loggedAtMs) const {
  if (source == Source::loggedAtFallback)
    return "No screenshot time recorded for this tick: this frame is from when the verdict was logged, which can be ~5–11s after what the "
           "classifier actually saw.";
  const double laterSec = static_cast<double>(loggedAtMs - ms) / 1000;
  const auto rounded = fmt::format("{:.0f}", laterSec);
  // A verdict logged within the same second needs no second figure.
  if (laterSec < 0 || rounded == "0" || rounded == "-0") return "Frame from when the classifier took its screenshot.";
  return fmt::format("Frame from when the classifier took its screenshot (verdict logged {}s later).", rounded);
}

}  // namespace halvo
