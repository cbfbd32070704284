#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"

/// Samples as a person reads them: which app when, there or away, and the moments that changed.
namespace halvo::ActivityTimeline {

inline constexpr double idleThresholdSec = 60;
inline constexpr double awayThresholdSec = 180;  ///< the same "away" as the judging of presence uses

struct Sample {
  std::int64_t tsMs = 0;
  std::optional<std::string> app = {};
  std::optional<double> idleSec = {};
  std::optional<std::string> browserTitle = {}, browserURL = {};
};

enum class Presence { active, idle, away };
/// Active below a minute without input, idle below three, else away; the lock screen is away.
Presence presenceOf(const Sample& sample);
template <class Value>
struct Span {
  std::int64_t fromMs = 0, toMs = 0;
  Value value = {};
  bool operator==(const Span&) const = default;
};
enum class Kind { appSwitch, tabSwitch, wentIdle, wentAway, cameBack };
struct Event {
  std::int64_t tsMs = 0;
  Kind kind = Kind::appSwitch;
  std::string detail = {};
  bool operator==(const Event&) const = default;
};

struct Range {
  std::int64_t fromMs = 0, toMs = 0;
  std::int64_t minSpanMs = 0;  ///< shorter spans join the one before
};
/// The stretches of one frontmost app; samples of an unknown app break a span. Samples are in time order.
std::vector<Span<std::string>> appSpans(const std::vector<Sample>& samples, const Range& range);
std::vector<Span<Presence>> presenceSpans(const std::vector<Sample>& samples, const Range& range);
std::vector<Event> events(const std::vector<Sample>& samples, std::int64_t fromMs, std::int64_t toMs);

/// The nearest event strictly behind or before a moment.
std::optional<Event> eventAfter(const std::vector<Event>& in, std::int64_t ms);
std::optional<Event> eventBefore(const std::vector<Event>& in, std::int64_t ms);

/// A stable colour slot for an app: the same name always gets the same one of `slots`.
int colorSlot(std::string_view app, int slots);

}  // namespace halvo::ActivityTimeline
