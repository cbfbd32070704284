#include "AmbitudeCore/Memory/DreamPowerPolicy.h"

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::DreamPowerPolicy {

using namespace DreamGuardrails;

bool isRequiredByEnvironment(const Environment& environment) {
  const auto text = value(environment, environmentKey);
  if (!text) return false;
  const auto lower = Text::lower(Text::trim(*text));
  return !lower.empty() && lower != "0" && lower != "false" && lower != "off" && lower != "no";
}

bool isDeferredFor(const Snapshot& snapshot) { return snapshot.isPluggedIn ? !*snapshot.isPluggedIn : snapshot.batteryDischarging == true; }

Decision decision(const Snapshot& snapshot, const Environment& environment) {
  if (isRequiredByEnvironment(environment) && isDeferredFor(snapshot)) return Pause{std::string(deferralReason)};
  return Proceed{};
}

Decision checkpoint(const Snapshot& snapshot, const Environment& environment) {
  return moreSevere(evaluate(snapshot), decision(snapshot, environment));
}

std::optional<PassStop> passStop(const Decision& decision) {
  using Stop = std::optional<PassStop>;
  return match(
      decision, [](const Proceed&) { return Stop(); }, [](const LowPower&) { return Stop(); },
      [](const Pause& pause) {
        return Stop({PassStop::Kind::paused, pause.reason});
      },
      [](const Abort& abort) {
        return Stop({PassStop::Kind::aborted, abort.reason});
      });
}

bool isPowerCausedStop(const PassStop& stop) { return stop.kind != PassStop::Kind::yielded; }

}  // namespace halvo::DreamPowerPolicy
