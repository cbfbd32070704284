#include <algorithm>
#include <cmath>

#include "AmbitudeCore/Classifier/ClassifierCadence.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::ClassifierCadence {
namespace {

std::optional<std::int64_t> positiveInteger(const Environment& environment, std::string_view key) {
  const auto text = value(environment, key);
  const auto number = text ? Text::parseInteger(*text) : std::nullopt;
  return number && *number > 0 ? number : std::nullopt;
}

/// Within what arithmetic on it can bear: a damaged file counts as none.
bool isTime(std::optional<std::int64_t> ms) { return ms && *ms >= 0 && *ms < (std::int64_t{1} << 53); }

template <class T>
void setIfPresent(JSONObject& object, const char* key, const std::optional<T>& value) {
  if (value) object.set(key, *value);
}

}  // namespace

Config Config::make(Config values) {
  values.floorSec = std::max<std::int64_t>(values.floorSec, 1);
  values.ceilingSec = std::max(values.ceilingSec, values.floorSec);
  values.onTaskCeilingSec = std::clamp(values.onTaskCeilingSec, values.floorSec, values.ceilingSec);
  values.growthExponent = std::isnan(values.growthExponent) ? 0 : std::clamp(values.growthExponent, 0.0, 1.0);
  values.warmupSec = std::max<std::int64_t>(values.warmupSec, 0);
  values.regimeGapSec = std::max<std::int64_t>(values.regimeGapSec, 0);
  values.volatilityBoost = std::max<std::int64_t>(values.volatilityBoost, 0);
  return values;
}

Config Config::fromEnvironment(const Environment& environment) {
  Config config;
  if (const auto minimum = positiveInteger(environment, "AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC")) {
    config.floorSec = *minimum;
    config.ceilingSec = std::max(config.ceilingSec, *minimum);
    config.onTaskCeilingSec = std::max(config.onTaskCeilingSec, *minimum);
  }
  if (const auto maximum = positiveInteger(environment, "AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC"); maximum && *maximum >= config.floorSec) {
    config.ceilingSec = *maximum;
    config.onTaskCeilingSec = std::min(config.onTaskCeilingSec, *maximum);
  }
  return make(config);
}

State State::beforeFirstJudgment(std::int64_t nowMs) { return {.lastRanAtMs = nowMs, .runStartedAtMs = nowMs}; }

std::string State::encode() const {
  JSONObject object{{"v", v},
                    {"last_ran_at_ms", lastRanAtMs},
                    {"last_judged_at_ms", lastJudgedAtMs},
                    {"run_started_at_ms", runStartedAtMs},
                    {"last_verdict", Text::scrubbed(lastVerdict)},
                    {"last_away", lastAway},
                    {"volatility", volatility},
                    {"paused_for_power", pausedForPower},
                    {"paused_for_call", pausedForCall}};
  setIfPresent(object, "last_frontmost_app", lastFrontmostApp);
  setIfPresent(object, "last_window_title", lastWindowTitle);
  setIfPresent(object, "last_declared_task", lastDeclaredTask);
  setIfPresent(object, "excursion_from_app", excursionFromApp);
  setIfPresent(object, "run_started_before_excursion_ms", runStartedBeforeExcursionMs);
  setIfPresent(object, "call_hold_since_ms", callHoldSinceMs);
  return JSONValue(std::move(object)).dumpPretty();
}

std::optional<State> State::decode(std::string_view text) {
  const auto parsed = JSONValue::parse(text);
  const auto* object = parsed ? parsed->objectValue() : nullptr;
  if (!object || object->integer("v") != 1) return std::nullopt;
  const auto ran = object->integer("last_ran_at_ms"), judged = object->integer("last_judged_at_ms"),
             started = object->integer("run_started_at_ms");
  const auto verdict = object->string("last_verdict");
  if (!isTime(ran) || !isTime(judged) || !isTime(started) || !verdict) return std::nullopt;
  return State{.lastRanAtMs = *ran,
               .lastJudgedAtMs = *judged,
               .runStartedAtMs = *started,
               .lastVerdict = *verdict,
               .lastFrontmostApp = object->string("last_frontmost_app"),
               .lastWindowTitle = object->string("last_window_title"),
               .lastAway = object->boolean("last_away").value_or(false),
               .lastDeclaredTask = object->string("last_declared_task"),
               .volatility = std::max<std::int64_t>(object->integer("volatility").value_or(0), 0),
               .excursionFromApp = object->string("excursion_from_app"),
               .runStartedBeforeExcursionMs = object->integer("run_started_before_excursion_ms"),
               .pausedForPower = object->boolean("paused_for_power").value_or(false),
               .pausedForCall = object->boolean("paused_for_call").value_or(false),
               .callHoldSinceMs = object->integer("call_hold_since_ms")};
}

std::optional<State> read(const std::filesystem::path& file) {
  try {
    return State::decode(readFile(file));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

void write(const State& state, const std::filesystem::path& file) { writeFileAtomically(file, state.encode()); }

}  // namespace halvo::ClassifierCadence
