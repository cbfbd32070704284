#include "CaptureShared/Signals/SignalsNotes.h"

#include <system_error>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

namespace {

std::optional<JSONValue> readObject(const std::filesystem::path& file) {
  try {
    auto value = JSONValue::parse(readFile(file));
    return value && value->objectValue() ? value : std::nullopt;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::optional<std::int64_t> dateAt(const JSONValue& object, std::string_view key) {
  const auto* value = object.find(key);
  const auto* text = value ? value->stringValue() : nullptr;
  return text ? ISO8601::parse(*text) : std::nullopt;
}

}  // namespace

namespace SignalsStaleNoteStore {

std::filesystem::path url(const std::filesystem::path& dataRoot) { return dataRoot / "signals-stale-note.json"; }

void write(const SignalsStaleNote& note, const std::filesystem::path& to) {
  const JSONObject row{{"lastGoodTickAtMs", note.lastGoodTickAtMs}, {"updatedAt", ISO8601::utcMillis(note.updatedAtMs)}};
  writeFileAtomically(to, JSONValue(row).dumpPretty() + "\n");
}

std::optional<SignalsStaleNote> read(const std::filesystem::path& from) {
  const auto row = readObject(from);
  if (!row) return std::nullopt;
  const auto lastGood = row->objectValue()->integer("lastGoodTickAtMs");
  const auto updated = dateAt(*row, "updatedAt");
  return lastGood && updated ? std::optional(SignalsStaleNote{*lastGood, *updated}) : std::nullopt;
}

void clear(const std::filesystem::path& at) {
  std::error_code ignored;
  std::filesystem::remove(at, ignored);
}

bool isCurrent(const SignalsStaleNote& note, std::int64_t nowMs) {
  const auto age = nowMs - note.updatedAtMs;
  return age >= 0 && static_cast<double>(age) <= confirmationStaleAfter * 1000;
}

}  // namespace SignalsStaleNoteStore

namespace CaptureRemovalIntentStore {

std::filesystem::path url(const std::filesystem::path& dataRoot) { return dataRoot / "capture-removal-intent.json"; }

void write(const CaptureRemovalIntent& intent, const std::filesystem::path& to) {
  writeFileAtomically(to, JSONValue(JSONObject{{"removedAt", ISO8601::utcMillis(intent.removedAtMs)}}).dumpPretty() + "\n");
}

std::optional<CaptureRemovalIntent> read(const std::filesystem::path& from) {
  const auto row = readObject(from);
  const auto removed = row ? dateAt(*row, "removedAt") : std::nullopt;
  return removed ? std::optional(CaptureRemovalIntent{*removed}) : std::nullopt;
}

bool isSuperseded(const CaptureRemovalIntent& intent, std::optional<std::int64_t> captureActivityAtMs, std::int64_t marginMs) {
  return captureActivityAtMs && *captureActivityAtMs > intent.removedAtMs + marginMs;
}

}  // namespace CaptureRemovalIntentStore

}  // namespace halvo
