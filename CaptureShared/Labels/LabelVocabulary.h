#pragma once

#include <string>
#include <string_view>

/// Stored labels and classifier states in a person's words.
namespace halvo::LabelVocabulary {

enum class Tone { aligned, caveat, diverged, away, unknown };

/// `unknown` for "ambiguous", "no_task" and whatever is no label.
Tone tone(std::string_view forStored);
/// "on task", "on task, over time", ...; a text that is no label stands as it is.
std::string displayName(std::string_view forStored);
/// The same for a state; `displayNameForState` of "NOT_ALIGNED" is "not aligned".
std::string displayNameForState(std::string_view forClassifierState);

}  // namespace halvo::LabelVocabulary
