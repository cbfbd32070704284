#pragma once

#include <string_view>

/// The words of the nightly prompts.
namespace halvo::ConsolidationPromptText {

extern const std::string_view preface;            ///< every prompt begins with it
extern const std::string_view digest;             ///< then the numbered lines
extern const std::string_view regeneration;       ///< then the sections
extern const std::string_view sequentialOpening;  ///< in place of the opening sentences of `regeneration`
extern const std::string_view corrections;        ///< at the end of the instruction when there are corrections
inline constexpr std::string_view ending = "\n\nRespond with ONLY the JSON object.";
inline constexpr std::string_view quietPeriod = "(quiet period, nothing logged)";

}  // namespace halvo::ConsolidationPromptText
