#include "CaptureShared/EventLog/EventLogWriter.h"

#include <cstdlib>

#include <unistd.h>

namespace halvo::EventLogWriter {

const std::string& defaultBuildVersion() {
  static const std::string version = [] {
    const char* given = std::getenv("AMBITCAP_BUILD_VERSION");
    return std::string(given ? given : "dev");
  }();
  return version;
}

void append(const EventLogEvent& event, const std::filesystem::path& file, std::string_view processName, std::string_view buildVersion) {
  auto detail = event.detail.objectValue() ? *event.detail.objectValue() : JSONObject();
  detail.set("_producer", JSONObject{{"pid", static_cast<std::int64_t>(::getpid())}, {"process", processName}, {"version", buildVersion}});
  JSONLAppend::appendValue(JSONValue(JSONObject{{"detail", std::move(detail)},
                                           {"kind", event.kind},
                                           {"source", event.source},
                                           {"ts_ms", event.tsMs},
                                           {"type", event.type}}),
                      file);
}

void append(const std::vector<EventLogEvent>& events, const std::filesystem::path& file, std::string_view processName,
            std::string_view buildVersion) {
  for (const auto& event : events) append(event, file, processName, buildVersion);
}

}  // namespace halvo::EventLogWriter
