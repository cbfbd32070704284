#include "AmbitudeCore/Review/RampScreeningReporter.h"

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::RampSampleSelector {

std::string RampLoadPhase::text(const Phase& phase) {
  return match(
      phase,
      [](const ScreeningCandidates& at) { return tr("Found {} of {} moment candidates", at.found, at.requested); },
      [](const LocatingFrames& at) { return tr("Locating video for {} of {} moments", at.resolved, at.total); },
      [](const ReadingLogs&) { return tr("Reading the logs…"); }, [](const Ready&) { return std::string(); });
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
