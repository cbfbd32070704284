#include "CaptureShared/Recording/Retention/VideoRetention.h"

#include <algorithm>
#include <limits>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/WallHour.h"

namespace halvo::VideoRetention {

namespace {

constexpr std::int64_t dayMs = 86'400'000;

bool isDecimal(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; }) && Text::parseInteger(text);
}

std::optional<std::int64_t> cutoffMs(const Facts& facts) {
  const auto age = days(facts.policy);
  if (!age || *age < 0) return facts.deleteBeforeMs;
  // So many days that they don't fit: nothing is that old.
  const auto limit = (facts.nowMs - std::numeric_limits<std::int64_t>::min() / 2) / dayMs;
  const auto byAge = *age > limit ? std::numeric_limits<std::int64_t>::min() : facts.nowMs - *age * dayMs;
  return std::max(byAge, facts.deleteBeforeMs.value_or(byAge));
}

struct Frame {
  std::int64_t cutoffMs = 0;
  std::string currentHour;
};

Verdict verdictOn(const std::string& filename, const std::string& prefix, std::int64_t endMs, const Frame& frame, const Facts& facts) {
  if (prefix == frame.currentHour) return Verdict::keptCurrentHour;
  if (facts.labelledHourPrefixes.contains(prefix)) return Verdict::keptLabelled;
  if (endMs > frame.cutoffMs) return Verdict::keptRecent;
  if (!facts.lastWriteMs) return Verdict::delete_;
  // A name says that a file is old; only its last write shows that nothing has been added since.
  const auto written = facts.lastWriteMs->find(filename);
  return written != facts.lastWriteMs->end() && written->second < frame.cutoffMs ? Verdict::delete_ : Verdict::keptRecent;
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
  const auto cutoff = cutoffMs(facts);
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
