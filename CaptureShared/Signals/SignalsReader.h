#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Signals/SQLiteDB.h"

namespace halvo {

class SignalsReaderError : public std::runtime_error {
 public:
  enum class Kind { openFailed, queryFailed };
  SignalsReaderError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// Reads `signals.sqlite`, read-only. One caller at a time. Every query throws `SignalsReaderError`.
class SignalsReader {
 public:
  explicit SignalsReader(const std::filesystem::path& file);

  struct TickRow {
    std::int64_t tsMs = 0;
    std::optional<std::string> frontmostApp = {}, browserApp = {}, browserTitle = {}, browserURL = {};
    std::optional<double> idleAnySec = {};
    std::optional<std::string> declaredTask = {};
    bool operator==(const TickRow&) const = default;
  };
  struct AppMinutes {
    std::string app = {};
    double approxMinutes = 0;  ///< samples stand 1.5 s apart; one decimal place
    bool operator==(const AppMinutes&) const = default;
  };
  struct WindowRow {
    std::optional<std::string> title = {};
    double x = 0, y = 0, width = 0, height = 0;  ///< pixels of the whole desktop
    std::int64_t layer = 0;
    bool operator==(const WindowRow&) const = default;
  };
  struct BatteryHistoryRow {
    std::int64_t tsMs = 0;
    std::optional<std::int64_t> batteryPct = {}, acPlugged = {};
    bool operator==(const BatteryHistoryRow&) const = default;
  };
  struct FrontmostAppTick {
    std::int64_t tsMs = 0;
    std::string frontmostApp = {};
    bool operator==(const FrontmostAppTick&) const = default;
  };

  /// The six apps most in front in `(referenceMs - windowMs, referenceMs]`.
  std::vector<AppMinutes> recentApps(std::int64_t referenceMs, std::int64_t windowMs) const;
  /// The newest row, or the newest at or before `asOfMs`.
  std::optional<TickRow> latestTick(std::optional<std::int64_t> asOfMs = {}) const;
  /// The focused content window of an app at a sample: `focusedContentWindow` among its rows.
  std::optional<WindowRow> contentWindow(std::int64_t tsMs, const std::string& ownerName) const;
  /// Windows smaller than this on a side are pop-ups and handles.
  static constexpr double minContentWindowSide = 60;
  static std::optional<WindowRow> focusedContentWindow(const std::vector<WindowRow>& among);
  std::optional<std::string> frontmostBundleId(std::int64_t tsMs) const;
  std::optional<std::int64_t> taskDeclaredTsMsFromSQLiteEvents(std::int64_t atOrBeforeMs) const;

  /// Found, and then maybe without minutes (a text that names no estimate); absent when the text was never parsed.
  struct CachedEstimate {
    std::optional<double> minutes = {};
    bool operator==(const CachedEstimate&) const = default;
  };
  std::optional<CachedEstimate> cachedEstimateMinutes(const std::string& declaredText) const;

  struct PresenceGap {
    TickRow beforeAbsence = {};     ///< the first absent row, or the row across the jump
    std::int64_t runStartMs = 0;  ///< the earliest row of the present run
    bool operator==(const PresenceGap&) const = default;
  };
  struct Gap {
    PresenceGap gap = {};
    bool operator==(const Gap&) const = default;
  };
  struct GapExceedsWindow {
    std::int64_t runStartMs = 0;
    bool operator==(const GapExceedsWindow&) const = default;
  };
  struct ContinuouslyPresent {
    bool operator==(const ContinuouslyPresent&) const = default;
  };
  using PresenceGapResult = std::variant<Gap, GapExceedsWindow, ContinuouslyPresent>;
  struct PresenceGapQuery {
    std::int64_t beforeMs = 0;
    std::int64_t withinMs = 0;
    double idleAwaySec = 180;
    std::int64_t maxContinuityGapMs = 180'000;
    int limit = 12'000;  ///< rows
  };
  /// How long the person has been back, walked backward from `beforeMs`.
  PresenceGapResult presenceGap(const PresenceGapQuery& query) const;
  /// Present: input at most `idleAwaySec` ago (an unknown idle time counts as none) and not at the lock screen.
  static bool isPresent(const TickRow& row, double idleAwaySec);

  /// In `[fromMs, toMs]`, oldest first, at most `limit`.
  std::vector<TickRow> ticks(std::int64_t fromMs, std::int64_t toMs, int limit) const;
  /// At or before `beforeMs` and not before `notBeforeMs`, newest first, at most `limit`.
  std::vector<TickRow> ticksBackward(std::int64_t beforeMs, std::int64_t notBeforeMs, int limit) const;

  struct Extent {
    double width = 0, height = 0;
    bool operator==(const Extent&) const = default;
  };
  /// The right and bottom edges that windows reached in `[fromTsMs, toMs]`; absent without windows.
  std::optional<Extent> maxWindowExtent(std::int64_t fromTsMs, std::int64_t toMs) const;
  /// Rows that hold a battery reading, oldest first.
  std::vector<BatteryHistoryRow> batteryHistory(std::int64_t sinceMs, int limit) const;
  std::optional<std::int64_t> latestNonEmptyWindowTitleMs(std::int64_t sinceMs) const;
  std::optional<FrontmostAppTick> latestTickMs(const std::vector<std::string>& frontmostAppIn, std::int64_t sinceMs) const;
  std::optional<std::int64_t> latestNonEmptyBrowserTabMs(std::int64_t sinceMs) const;

 private:
  SQLiteDB db_;
};

}  // namespace halvo
