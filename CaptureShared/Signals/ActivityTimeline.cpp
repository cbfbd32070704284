#include "CaptureShared/Signals/ActivityTimeline.h"

#include <algorithm>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::ActivityTimeline {

namespace {

/// A sample stands for the time to the next one, but never for longer than this: behind it the machine slept or the sampler stopped.
constexpr std::int64_t maxSampleReachMs = 10'000;

/// Neighbouring samples of one value as spans; `valueOf` answers absent for a sample that belongs to none.
template <class Value, class F>
std::vector<Span<Value>> spans(const std::vector<Sample>& samples, const Range& range, F&& valueOf) {
  std::vector<Span<Value>> result;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const auto& sample = samples[i];
    if (sample.tsMs < range.fromMs || sample.tsMs > range.toMs) continue;
    const auto next = i + 1 < samples.size() ? samples[i + 1].tsMs : sample.tsMs + 1500;
    const auto until = std::min({next, sample.tsMs + maxSampleReachMs, range.toMs});
    const std::optional<Value> value = valueOf(sample);
    if (!value) continue;
    if (!result.empty() && result.back().value == *value && result.back().toMs == sample.tsMs)
      result.back().toMs = until;
    else
      result.push_back({sample.tsMs, until, *value});
  }
  // A short span joins the one before it; then equal neighbours are one.
  std::vector<Span<Value>> joined;
  for (auto& span : result) {
    const bool touches = !joined.empty() && joined.back().toMs == span.fromMs;
    if (touches && (span.toMs - span.fromMs < range.minSpanMs || joined.back().value == span.value))
      joined.back().toMs = span.toMs;
    else
      joined.push_back(std::move(span));
  }
  return joined;
}

}  // namespace

Presence presenceOf(const Sample& sample) {
  if (sample.app && Text::equalsIgnoringCase(*sample.app, "loginwindow")) return Presence::away;
  const double idle = sample.idleSec.value_or(0);
  if (idle > awayThresholdSec) return Presence::away;
  return idle > idleThresholdSec ? Presence::idle : Presence::active;
}

std::vector<Span<std::string>> appSpans(const std::vector<Sample>& samples, const Range& range) {
  return spans<std::string>(samples, range, [](const Sample& sample) { return sample.app; });
}

std::vector<Span<Presence>> presenceSpans(const std::vector<Sample>& samples, const Range& range) {
  return spans<Presence>(samples, range, [](const Sample& sample) { return std::optional(presenceOf(sample)); });
}

std::vector<Event> events(const std::vector<Sample>& samples, std::int64_t fromMs, std::int64_t toMs) {
  std::vector<Event> result;
  const Sample* before = nullptr;
  for (const auto& sample : samples) {
    if (sample.tsMs > toMs) break;
    if (before && sample.tsMs >= fromMs) {
      const auto was = presenceOf(*before), is = presenceOf(sample);
      if (is != was) {
        const auto kind = is == Presence::active ? Kind::cameBack : is == Presence::idle ? Kind::wentIdle : Kind::wentAway;
        // From away to idle nothing came back: the clock of the last input is only being corrected.
        if (!(was == Presence::away && is == Presence::idle)) result.push_back({sample.tsMs, kind, ""});
      }
      if (sample.app && before->app && *sample.app != *before->app)
        result.push_back({sample.tsMs, Kind::appSwitch, *sample.app});
      else if (sample.browserTitle && before->browserTitle &&
               (*sample.browserTitle != *before->browserTitle || sample.browserURL != before->browserURL))
        result.push_back({sample.tsMs, Kind::tabSwitch, *sample.browserTitle});
    }
    before = &sample;
  }
  return result;
}

std::optional<Event> eventAfter(const std::vector<Event>& in, std::int64_t ms) {
  const auto found = std::find_if(in.begin(), in.end(), [&](const Event& event) { return event.tsMs > ms; });
  return found == in.end() ? std::nullopt : std::optional(*found);
}

std::optional<Event> eventBefore(const std::vector<Event>& in, std::int64_t ms) {
  const auto found = std::find_if(in.rbegin(), in.rend(), [&](const Event& event) { return event.tsMs < ms; });
  return found == in.rend() ? std::nullopt : std::optional(*found);
}

int colorSlot(std::string_view app, int slots) {
  if (slots < 1) return 0;
  std::uint32_t hash = 2'166'136'261u;  // FNV-1a: the same in every run and on every machine
  for (const char c : app) hash = (hash ^ static_cast<unsigned char>(c)) * 16'777'619u;
  return static_cast<int>(hash % static_cast<std::uint32_t>(slots));
}

}  // namespace halvo::ActivityTimeline
