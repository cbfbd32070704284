#include "CaptureShared/Recording/Retention/VideoRetention.h"

#include <algorithm>
#include <limits>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/WallHour.h"

namespace halvo::VideoRetention {

namespace {

constexpr std::int64_t hourMs = 3'600'000, dayMs = 24 * hourMs;

bool isDecimal(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; }) && Text::parseInteger(text);
}

struct Cutoff {
  std::int64_t endMs = 0;    ///< of an hour
  std::int64_t writeMs = 0;  ///< of a file's last write
};
std::optional<Cutoff> cutoffOf(const Facts& facts) {
  const auto age = days(facts.policy);
  if (!age || *age < 0) return facts.deleteBeforeMs ? std::optional(Cutoff{*facts.deleteBeforeMs, *facts.deleteBeforeMs}) : std::nullopt;
  // So many days that they don't fit: nothing is that old.
  const auto limit = (facts.nowMs - std::numeric_limits<std::int64_t>::min() / 2) / dayMs;
  const auto byAge = *age > limit ? std::numeric_limits<std::int64_t>::min() : facts.nowMs - *age * dayMs;
  // What is recorded now may bear the name of another zone's hour. What was recorded before the machine's start is not.
  const auto closed = std::min(byAge, facts.nowMs - hourMs);
  return Cutoff{std::max(byAge, facts.deleteBeforeMs.value_or(byAge)), std::max(closed, facts.deleteBeforeMs.value_or(closed))};
}

struct Frame {
  Cutoff cutoff;
  std::string currentHour;
};

std::optional<std::int64_t> lastWriteOf(const std::string& filename, const Facts& facts) {
  if (!facts.lastWriteMs) return std::nullopt;
  const auto found = facts.lastWriteMs->find(filename);
  return found == facts.lastWriteMs->end() ? std::nullopt : std::optional(found->second);
}

/// An hour's recording ends with its last write.
bool mayHoldLabelled(std::int64_t writtenMs, const Facts& facts) {
  return std::ranges::any_of(facts.labelledSpans,
                             [&](const auto& span) { return span.fromMs <= writtenMs && writtenMs - hourMs <= span.toMs; });
}

Verdict verdictOn(const std::string& filename, const std::string& prefix, std::int64_t endMs, const Frame& frame, const Facts& facts) {
  if (prefix == frame.currentHour) return Verdict::keptCurrentHour;
  const auto written = lastWriteOf(filename, facts);
  if (facts.labelledHourPrefixes.contains(prefix) || (written && mayHoldLabelled(*written, facts))) return Verdict::keptLabelled;
  if (endMs > frame.cutoff.endMs) return Verdict::keptRecent;
  if (!facts.lastWriteMs) return Verdict::delete_;
  // A name says that a file is old; only its last write shows that nothing has been added since.
  return written && *written < frame.cutoff.writeMs ? Verdict::delete_ : Verdict::keptRecent;
}

}  // namespace

std::optional<std::int64_t> days(const RetentionPolicy& policy) {
  return match(
      policy, [](const Disabled&) { return std::optional<std::int64_t>(); },
      [](const DeleteOlderThanDays& age) { return std::optional(age.days); });
}

std::string hourPrefix(std::int64_t ms, const Calendar& calendar) { return WallHour::prefix(ms, calendar); }

std::optional<std::int64_t> hourStartMs(std::string_view prefix, const Calendar& calendar) {
  const auto span = WallHour::span(prefix, calendar);
  return span ? std::optional(span->startMs) : std::nullopt;
}

std::optional<std::string> parseHourPrefix(std::string_view filename) {
  constexpr std::string_view extension = ".mkv", part = "part";
  if (!filename.ends_with(extension)) return std::nullopt;
  auto candidate = filename.substr(0, filename.size() - extension.size());
  if (const auto dot = candidate.find('.'); dot != candidate.npos) {
    const auto behind = candidate.substr(dot + 1);
    if (behind.starts_with(part) && isDecimal(behind.substr(part.size()))) candidate = candidate.substr(0, dot);
  }
  return WallHour::isPrefix(candidate) ? std::optional(std::string(candidate)) : std::nullopt;
}

std::vector<Candidate> plan(const Facts& facts) {
  const auto cutoff = cutoffOf(facts);
  if (!cutoff) return {};
  const Frame frame{*cutoff, hourPrefix(facts.nowMs, facts.calendar)};
  auto names = facts.filenames;
  std::ranges::stable_sort(names);
  std::vector<Candidate> candidates;
  for (const auto& name : names) {
    const auto prefix = parseHourPrefix(name);
    const auto span = prefix ? WallHour::span(*prefix, facts.calendar) : std::nullopt;
    if (!span) continue;
    candidates.push_back({.filename = name,
                          .hourPrefix = *prefix,
                          .hourStartMs = span->startMs,
                          .verdict = verdictOn(name, *prefix, span->endMs, frame, facts)});
  }
  return candidates;
}

}  // namespace halvo::VideoRetention
