#include "AmbitudeAppKit/Stores/Corrections.h"

#include <system_error>

#include "AmbitudeAppKit/Stores/EventSearch.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/DataRoot/DataPaths.h"

namespace halvo::Corrections {

namespace {

std::vector<CoachCorrection> inEventLog(const std::filesystem::path& root) {
  return CoachCorrectionsLog::fromEvents(EventSearch::eventsThat(
      [](EventLogEvent& event) { return event.type == EventType::correctionRecorded; }, DataPaths::events(root)));
}

}  // namespace

std::vector<CoachCorrection> list(const std::filesystem::path& root) {
  try {
    return CoachCorrectionsLog::readAll(CoachCorrectionsLog::defaultURL(root));
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    return inEventLog(root);
  }
}

bool erase(std::int64_t atMs, const std::filesystem::path& root) {
  const auto url = CoachCorrectionsLog::defaultURL(root);
  // Without a file the log would bring it back.
  CoachCorrectionsLog::restore(inEventLog(root), url);
  return CoachCorrectionsLog::erase(atMs, url);
}

}  // namespace halvo::Corrections
