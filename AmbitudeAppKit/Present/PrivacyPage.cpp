#include "AmbitudeAppKit/Present/PrivacyPage.h"

#include <algorithm>

#include "AmbitudeAppKit/Stores/OwnDenylist.h"
#include "AmbitudeCore/Backends/Factory/ModelSelection.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Privacy/Denylist.h"

namespace halvo {

namespace {

std::string coachOf(const Environment& environment) {
  using namespace ModelBackendFactory;
  if (const auto refusal = fatalReason(environment)) return tr("Nothing: the coach does not start. {}", *refusal);
  const auto what = describeSelection(environment);
  return coachPrimaryIsLocal(environment) ? tr("Nothing: the coach runs here, on {}.", what) : tr("The coach's text goes to a service: {}.", what);
}

/// "gate" and "coach" are what there is; another name is shown as it is.
std::string who(const std::string& layer) {
  if (layer == "gate") return tr("gate");
  return layer == "coach" ? tr("coach") : layer;
}

PrivacyPage::Call callOf(const TurnUsageRecord& record, const Calendar& calendar) {
  PrivacyPage::Call call{.when = calendar.monthDayHourMinute(record.atMs),
                         .who = who(record.layer),
                         .promptTokens = record.promptTokens,
                         .completionTokens = record.completionTokens};
  // Only a remote service names a provider, a generation or a price.
  call.leftTheMachine = record.provider || record.generationID || record.costUSD;
  call.where = record.provider       ? *record.provider
               : call.leftTheMachine ? tr("a remote service")
                                     : tr("the local model, or a service that gave no name");
  return call;
}

}  // namespace

PrivacyPage PrivacyPage::read(const std::filesystem::path& root, const Environment& environment, const Calendar& calendar) {
  PrivacyPage page;
  page.coach = coachOf(environment);
  const auto kept = OwnDenylist::read(environment);
  const auto inForce = Denylist::fromEnvironment(environment).appNames();
  const bool isBuiltIn = inForce == Denylist::defaultAppNames();
  page.denylist = kept.value_or(inForce);
  if (inForce != page.denylist)
    page.denylistSource = isBuiltIn ? DenylistSource::kept : DenylistSource::outside;
  else if (!isBuiltIn)
    page.denylistSource = DenylistSource::theirs;
  for (const auto& record : TurnUsageRecordLog::read(TurnUsageRecordLog::defaultURL(root), callsShown)) page.calls.push_back(callOf(record, calendar));
  std::ranges::reverse(page.calls);
  return page;
}

}  // namespace halvo
