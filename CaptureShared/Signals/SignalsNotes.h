#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace halvo {

/// `signals-stale-note.json`: the classifier saw the sampler stop.
struct SignalsStaleNote {
  std::int64_t lastGoodTickAtMs = 0;
  std::int64_t updatedAtMs = 0;  ///< on disk an ISO 8601 text, `updatedAt`
  bool operator==(const SignalsStaleNote&) const = default;
};

namespace SignalsStaleNoteStore {
inline constexpr double confirmationStaleAfter = 300;  ///< seconds
std::filesystem::path url(const std::filesystem::path& dataRoot);
void write(const SignalsStaleNote& note, const std::filesystem::path& to);  ///< throws `std::system_error`
std::optional<SignalsStaleNote> read(const std::filesystem::path& from);    ///< absent when missing or undecodable
void clear(const std::filesystem::path& at);
/// Its age is at least 0 and at most `confirmationStaleAfter`.
bool isCurrent(const SignalsStaleNote& note, std::int64_t nowMs);
}  // namespace SignalsStaleNoteStore

/// `capture-removal-intent.json`: the user asked to remove what was captured.
struct CaptureRemovalIntent {
  std::int64_t removedAtMs = 0;  ///< on disk an ISO 8601 text, `removedAt`
  bool operator==(const CaptureRemovalIntent&) const = default;
};

namespace CaptureRemovalIntentStore {
std::filesystem::path url(const std::filesystem::path& dataRoot);
void write(const CaptureRemovalIntent& intent, const std::filesystem::path& to);
std::optional<CaptureRemovalIntent> read(const std::filesystem::path& from);
/// Capture was active later than the removal and the margin; without a known activity, never.
bool isSuperseded(const CaptureRemovalIntent& intent, std::optional<std::int64_t> captureActivityAtMs, std::int64_t marginMs);
}  // namespace CaptureRemovalIntentStore

}  // namespace halvo
