#include "AmbitudeCore/Folds/UserStandingInstructionsRendering.h"

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo::UserStandingInstructionsRendering {
namespace {
std::optional<std::string> rendered(std::string_view leadIn, std::string_view note) {
  const auto trimmed = Text::trim(note);
  if (trimmed.empty()) return std::nullopt;
  // People paste: a turn marker in a note would end the turn just as one from a screen would.
  return std::string(leadIn) + ": \"" + ScreenText::breakTurnMarkers(trimmed) + "\"";
}
constexpr std::string_view writtenForYou = "A standing note they wrote for you directly";
constexpr std::string_view alsoTold = "They've also told you this";
}  // namespace

std::optional<std::string> forGate(std::string_view note) { return rendered(writtenForYou, note); }
std::optional<std::string> forCoach(std::string_view note) { return rendered(writtenForYou, note); }
std::optional<std::string> forClassifier(std::string_view note) { return rendered(alsoTold, note); }

}  // namespace halvo::UserStandingInstructionsRendering
