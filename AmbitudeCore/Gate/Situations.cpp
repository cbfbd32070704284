#include "AmbitudeCore/Gate/Situations.h"

#include "AmbitudeCore/Folds/OwnApplications.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

std::string Situation::described() const { return state + " in " + app.value_or("an unrecorded app"); }

std::vector<SituationRun> situationRuns(std::span<const TimedTick> ticks) {
  std::vector<SituationRun> runs;
  for (const auto& timed : ticks) {
    const auto& tick = *timed.tick;
    if (!tick.state || timed.isAbstained() || Text::equalsIgnoringCase(*tick.state, "IDLE")) continue;
    if (OwnApplications::contains(tick.frontmostApp)) continue;
    if (!runs.empty() && runs.back().situation.state == *tick.state && runs.back().situation.app == tick.frontmostApp)
      ++runs.back().samples;
    else
      runs.push_back({{*tick.state, tick.frontmostApp}, timed.tsMs, 1});
  }
  return runs;
}

}  // namespace halvo
