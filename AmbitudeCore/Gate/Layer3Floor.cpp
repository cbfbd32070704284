#include "AmbitudeCore/Gate/Layer3Floor.h"

#include <limits>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/LogFileRead.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::Layer3Floor {
namespace {
constexpr std::string_view key = "floorTsMs";

std::int64_t initialFloor(std::int64_t asOfMs, std::span<const EventLogEvent> events) {
  const auto newest = [&](std::string_view type) {
    return EventScan::newest(events, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(),
                             [&](const EventLogEvent& event) { return event.type == type; });
  };
  const auto* started = newest(EventType::onboardingStarted);
  const auto* reset = newest(EventType::onboardingReset);
  return started && (!reset || started->tsMs > reset->tsMs) ? started->tsMs : asOfMs;
}

void persist(const std::filesystem::path& file, std::int64_t floorMs) {
  makePrivateFolder(file.parent_path());
  writeFileAtomically(file, JSONValue(JSONObject{{std::string(key), floorMs}}).dump());
}
}  // namespace

std::filesystem::path path(const std::filesystem::path& dataRoot) { return dataRoot / "io-layer" / "layer3-floor.json"; }

std::optional<std::int64_t> resolve(const std::filesystem::path& dataRoot, std::int64_t asOfMs, std::span<const EventLogEvent> events,
                                    const LogSink& log) {
  const auto file = path(dataRoot);
  const auto tell = [&](const std::string& line) {
    if (log) log(line);
  };
  return match(
      LogFileRead::attempt([&] { return readFile(file); }),
      [&](const LogFileRead::Value<std::string>& stored) -> std::optional<std::int64_t> {
        const auto value = JSONValue::parse(stored.value);
        const auto* object = value ? value->objectValue() : nullptr;
        const auto floorMs = object ? object->integer(key) : std::nullopt;
        if (!floorMs)
          tell(fmt::format("layer3: floor at {} did not decode ({} bytes); refusing to re-pin over it", file.string(),
                           stored.value.size()));
        return floorMs;
      },
      [&](const LogFileRead::Unreadable& failure) -> std::optional<std::int64_t> {
        tell(fmt::format("layer3: could not read floor at {}: {}", file.string(), failure.error));
        return std::nullopt;
      },
      [&](const LogFileRead::Absent&) -> std::optional<std::int64_t> {
        const auto floorMs = initialFloor(asOfMs, events);
        try {
          persist(file, floorMs);
        } catch (const std::system_error& error) {
          tell(fmt::format("layer3: could not persist floor at {}: {}", file.string(), error.what()));
        }
        return floorMs;
      });
}

}  // namespace halvo::Layer3Floor
