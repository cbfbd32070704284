#include "CaptureShared/Recording/Supervision/RecordingControls.h"

#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

constexpr const char* filename = "recording-controls.json";
/// Ours is a hundred bytes: whatever is longer is none.
constexpr std::size_t longestFile = 4'096;

/// The time at a key; absent also for null. Whether it holds anything else is told by `isSound`.
std::optional<std::int64_t> timeAt(const JSONObject& object, std::string_view key, bool& isSound) {
  const auto* value = object.find(key);
  if (!value || value->isNull()) return std::nullopt;
  const auto time = object.integer(key);
  isSound = isSound && time;
  return time;
}

}  // namespace

bool RecordingControls::isPaused(std::int64_t nowMs) const {
  if (isUnreadable) return true;
  return pausedUntilMs ? nowMs < *pausedUntilMs : pausedAtMs.has_value();
}

std::string RecordingControls::words(std::int64_t nowMs, const Calendar& calendar) const {
  if (isUnreadable) return tr("paused: {} can't be read", filename);
  if (!isPaused(nowMs)) return tr("not paused");
  const auto at = pausedUntilMs ? *pausedUntilMs : *pausedAtMs;
  constexpr std::int64_t needsDateMs = 12 * 3'600'000LL;
  const bool isFar = at < nowMs - needsDateMs || at > nowMs + needsDateMs;
  const auto when = isFar ? calendar.monthDayHourMinute(at) : calendar.hourMinute(at);
  return pausedUntilMs ? tr("paused until {}", when) : tr("paused since {}", when);
}

RecordingControls RecordingControls::paused(std::int64_t nowMs, std::optional<std::int64_t> untilMs) const {
  return {.pausedAtMs = isPaused(nowMs) ? pausedAtMs.value_or(nowMs) : nowMs, .pausedUntilMs = untilMs, .quality = quality};
}

RecordingControls RecordingControls::resumed() const { return {.quality = quality}; }

RecordingControls RecordingControls::with(Quality wanted, std::int64_t nowMs) const {
  auto changed = isUnreadable ? paused(nowMs, std::nullopt) : *this;
  changed.quality = wanted;
  return changed;
}

std::filesystem::path RecordingControls::path(const std::filesystem::path& dataRoot) { return dataRoot / filename; }

std::optional<RecordingControls> RecordingControls::decode(std::string_view text) {
  const auto json = JSONValue::parse(text);
  if (!json || !json->objectValue()) return std::nullopt;
  const auto& object = *json->objectValue();
  bool isSound = true;
  RecordingControls controls{.pausedAtMs = timeAt(object, "paused_at_ms", isSound), .pausedUntilMs = timeAt(object, "paused_until_ms", isSound)};
  if (object.contains("quality")) {
    const auto quality = fromRawValue<Quality>(object.string("quality").value_or(""));
    isSound = isSound && quality;
    controls.quality = quality.value_or(Quality::full);
  }
  return isSound ? std::optional(controls) : std::nullopt;
}

std::string RecordingControls::encode() const {
  JSONObject object{{"quality", rawValue(quality)}};
  if (pausedAtMs) object.set("paused_at_ms", *pausedAtMs);
  if (pausedUntilMs) object.set("paused_until_ms", *pausedUntilMs);
  return JSONValue(std::move(object)).dump() + "\n";
}

RecordingControls RecordingControls::read(const std::filesystem::path& dataRoot) {
  try {
    if (const auto controls = decode(FileHandle::openForRead(path(dataRoot)).readAt(0, longestFile))) return *controls;
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
  }
  return {.isUnreadable = true};
}

void RecordingControls::write(const std::filesystem::path& dataRoot) const { writeFileAtomically(path(dataRoot), encode()); }

}  // namespace halvo
