#include "agents/CoachDriver/CorrectionsReader.h"

#include <system_error>

#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"

namespace halvo {

std::vector<CoachCorrection> CorrectionsReader::read(std::span<const EventLogEvent> events) {
  try {
    const auto now = FileIdentity::of(file_);
    if (seen_ != now) rows_ = CoachCorrectionsLog::readAll(file_);
    seen_ = now;
    told_.clear();
  } catch (const std::system_error& error) {
    seen_.reset();
    if (error.code() == std::errc::no_such_file_or_directory) {
      rows_.reset();
    } else if (const auto line = std::string("layer3: what they taught can't be read: ") + error.what(); line != told_) {
      log_(told_ = line);
    }
  }
  return rows_ ? *rows_ : CoachCorrectionsLog::fromEvents(events);
}

}  // namespace halvo
