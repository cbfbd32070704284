#include "AmbitudeAppKit/Stores/EventSearch.h"

#include <system_error>

#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::EventSearch {

std::vector<EventLogEvent> eventsThat(const std::function<bool(EventLogEvent&)>& keeps, const std::filesystem::path& log) {
  auto reader = JSONLReaders::events(log, keeps);
  try {
    return match(
        reader.readFull(), [](Reset<EventLogEvent>&& all) { return std::move(all.rows); },
        [](Appended<EventLogEvent>&& some) { return std::move(some.rows); });
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
}

}  // namespace halvo::EventSearch
