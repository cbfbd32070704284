#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

/// Whether each part that works in the background is alive, told by what it wrote and not by a process being there. Pure.
namespace halvo::ComponentHealth {

enum class Component { capture, classifier, coach };
std::string displayName(Component component);
std::string whatItDoes(Component component);

enum class Supervision { offByChoice, expectedToRun };

inline constexpr double expectedCadence = 60;   ///< seconds between two signs of life, at most
inline constexpr double graceCadences = 3.0;
inline constexpr double silentAfter = expectedCadence * graceCadences;  ///< seconds

struct Pause {
  enum class Reason { call };
  static constexpr double longHold = 7'200;  ///< seconds

  Reason reason = Reason::call;
  std::optional<std::int64_t> sinceMs = {};
  bool operator==(const Pause&) const = default;
};

struct Working {
  std::optional<std::int64_t> lastActivityMs = {};
  bool operator==(const Working&) const = default;
};
struct Silent {
  std::optional<std::int64_t> lastActivityMs = {};  ///< absent: never seen
  double quietFor = 0;                              ///< seconds
  bool operator==(const Silent&) const = default;
};
struct Paused {
  Pause pause;
  bool operator==(const Paused&) const = default;
};
struct OffByChoice {
  bool operator==(const OffByChoice&) const = default;
};
using Status = std::variant<Working, Silent, Paused, OffByChoice>;
inline bool isFault(const Status& status) { return std::holds_alternative<Silent>(status); }

struct Moment {
  Component component = Component::capture;  ///< a label: all have the same cadence
  Supervision supervision = Supervision::expectedToRun;
  std::optional<std::int64_t> lastActivityMs = {};
  std::optional<Pause> pause = {};
  std::int64_t nowMs = 0;
};
/// Silent is longer than `silentAfter` without activity, which no pause hides. Activity in the future (the clock was set back) is activity.
Status status(const Moment& moment);

/// The first that is silent, in the order of `Component`.
std::optional<std::pair<Component, Status>> worstFault(std::span<const std::pair<Component, Status>> statuses);

struct StaleSignals {
  Component component = Component::capture;
  bool signalsAreKnown = false;      ///< whether the sampler's newest row could be read
  bool deliberatelyRemoved = false;  ///< the person took the recorder away
};
/// Whether stale samples alone speak against a component: the sampler shares its supervisor with the recorder, so rows that are known to
/// have stopped speak against `capture`, unless that was removed on purpose.
bool capturedForcedByStaleSignals(const StaleSignals& facts);

}  // namespace halvo::ComponentHealth
