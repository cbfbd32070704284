#include "AmbitudeCore/Classifier/ClassifierSelfObservation.h"

#include <algorithm>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::ClassifierSelfObservation {

bool isOwnWindowNow(const std::optional<std::string>& frontmostApp) {
  return frontmostApp && Text::equalsIgnoringCase(*frontmostApp, currentAppName);
}

bool isOwnWindow(const std::optional<std::string>& frontmostApp) {
  return isOwnWindowNow(frontmostApp) ||
         (frontmostApp && std::any_of(std::begin(historicalAppNames), std::end(historicalAppNames),
                                      [&](std::string_view name) { return Text::equalsIgnoringCase(*frontmostApp, name); }));
}

bool isOwnWindowNow(const ClassifierTick& tick) { return isOwnWindowNow(tick.frontmostApp); }
bool isOwnWindow(const ClassifierTick& tick) { return isOwnWindow(tick.frontmostApp); }

}  // namespace halvo::ClassifierSelfObservation
