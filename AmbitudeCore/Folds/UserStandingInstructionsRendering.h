#pragma once

#include <optional>
#include <string>
#include <string_view>

/// A person's standing note as each model reads it. A blank note renders to nothing.
namespace halvo::UserStandingInstructionsRendering {

std::optional<std::string> forGate(std::string_view note);
std::optional<std::string> forCoach(std::string_view note);
std::optional<std::string> forClassifier(std::string_view note);

}  // namespace halvo::UserStandingInstructionsRendering
