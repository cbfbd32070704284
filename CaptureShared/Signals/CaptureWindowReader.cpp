#include "CaptureShared/Signals/CaptureWindowReader.h"

#include "CaptureShared/Signals/SignalsReader.h"

namespace halvo::CaptureWindowReader {

std::optional<CaptureWindowSummary> read(const Request& request) {
  try {
    const SignalsReader reader(request.signalsPath);
    const std::int64_t windowMs = std::int64_t{request.windowMinutes} * 60'000;
    CaptureWindowSummary summary{.asOfMs = request.asOfMs, .windowMinutes = request.windowMinutes};
    for (auto& share : reader.recentApps(request.asOfMs, windowMs)) summary.appShares.push_back({std::move(share.app), share.approxMinutes});
    if (const auto newest = reader.latestTick(request.asOfMs); newest && newest->tsMs > request.asOfMs - windowMs)
      summary.frontmostNow = newest->frontmostApp;
    return summary;
  } catch (const SignalsReaderError&) {
    return std::nullopt;
  }
}

}  // namespace halvo::CaptureWindowReader
