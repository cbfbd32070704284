#include "AmbitudeCore/Memory/MemoryWipeLog.h"

#include <algorithm>
#include <system_error>

#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::MemoryWipeLog {

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "memory-wipes.jsonl"; }

void request(std::int64_t atMs, const std::filesystem::path& url) { JSONLAppend::appendValue(JSONObject{{"at_ms", atMs}}, url); }

std::optional<std::int64_t> latestAtMs(const std::filesystem::path& url) {
  std::string bytes;
  try {
    bytes = readFile(url);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
  std::optional<std::int64_t> latest;
  for (const auto line : Text::split(bytes, '\n')) {
    const auto row = JSONValue::parse(line);
    const auto at = row && row->objectValue() ? row->objectValue()->integer("at_ms") : std::nullopt;
    if (at) latest = std::max(latest.value_or(*at), *at);
  }
  return latest;
}

}  // namespace halvo::MemoryWipeLog
