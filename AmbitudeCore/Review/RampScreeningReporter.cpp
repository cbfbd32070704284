#include "AmbitudeCore/Review/RampScreeningReporter.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"

namespace halvo::RampSampleSelector {

std::string RampLoadPhase::text(const Phase& phase) {
  return match(
      phase,
      [](const ScreeningCandidates& at) { return fmt::format("Found {} of {} moment candidates", at.found, at.requested); },
      [](const LocatingFrames& at) { return fmt::format("Locating video for {} of {} moments", at.resolved, at.total); },
      [](const ReadingLogs&) { return std::string("Reading the logs…"); }, [](const Ready&) { return std::string(); });
}

IsRenderable RampScreeningReporter::watching(IsRenderable isRenderable) {
  return [this, isRenderable = std::move(isRenderable)](std::int64_t atMs) {
    if (isRenderable && onProgress) onProgress(RampLoadPhase::LocatingFrames{.resolved = found, .total = requested});
    const bool is = !isRenderable || isRenderable(atMs);
    ++screened;
    found += is;
    if (onProgress) onProgress(RampLoadPhase::ScreeningCandidates{.found = found, .requested = requested, .screened = screened});
    return is;
  };
}

}  // namespace halvo::RampSampleSelector
