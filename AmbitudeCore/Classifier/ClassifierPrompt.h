#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "AmbitudeCore/Classifier/ClassifierState.h"
#include "CaptureShared/Privacy/ContentWithheldReason.h"
#include "CaptureShared/Privacy/RedactionReport.h"

/// What the classifier's model is told.
namespace halvo::ClassifierPrompt {

/// The instructions; the same for every moment.
extern const std::string_view system;

// Longer than anything a person reads at a glance; they keep a hostile page or title from filling the model's context. Characters, cut
// after redaction.
inline constexpr std::size_t taskCap = 4000;
inline constexpr std::size_t titleCap = 500;
inline constexpr std::size_t addressCap = 1000;
inline constexpr std::size_t screenTextCap = 10'000;
inline constexpr std::size_t descriptionCap = 2000;

/// What was read off the screen, redacted and ready to stand in a message. Only `redactedWindowContent` makes one.
struct WindowContent {
  std::string text = {};
  RedactionReport redactions = {};
  bool operator==(const WindowContent&) const = default;
};
WindowContent redactedWindowContent(std::string_view ocrText, std::string_view description);

struct Parts {
  const ClassifierState& state;
  std::optional<std::string> taskOverride = {};         ///< judged in place of the declared text
  std::optional<WindowContent> windowContent = {};      ///< absent: nothing could be read
  std::optional<std::string> userInstructions = {};     ///< the user's standing note, rendered for the classifier
  std::optional<ContentWithheldReason> contentWithheldForDenylist = {};  ///< outweighs any content
};

/// The user message of a moment whose texts are fit to be shown. Turn markers in them are broken.
std::string buildUserMessage(const Parts& parts);

/// The same with every text redacted first (the task, app, titles, address and what was on screen), and what was taken out.
std::pair<std::string, RedactionReport> buildRedactedUserMessage(const Parts& parts);

}  // namespace halvo::ClassifierPrompt
