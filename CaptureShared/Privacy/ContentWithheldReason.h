#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// Why a moment was judged without a look at the screen.
enum class ContentWithheldReason { frontmostAppDenylisted, anotherDenylistedAppWindowVisible };

template <>
struct RawValues<ContentWithheldReason> {
  static constexpr std::array table{
      std::pair{ContentWithheldReason::frontmostAppDenylisted, "frontmost_denylisted"},
      std::pair{ContentWithheldReason::anotherDenylistedAppWindowVisible, "denylisted_window_visible"}};
};

/// What the model is told in place of the window's content.
constexpr std::string_view promptText(ContentWithheldReason reason) {
  switch (reason) {
    case ContentWithheldReason::frontmostAppDenylisted:
      return "Withheld: the frontmost app is a password manager, authenticator, or system security prompt. Its on-screen contents are "
             "never captured or described to this system — judge only from the app name and how long it has been in front, the same as "
             "any other activity.";
    case ContentWithheldReason::anotherDenylistedAppWindowVisible:
      return "Withheld: a password manager, authenticator, or system security prompt window is visible on screen, though it is not the "
             "frontmost app. Its on-screen contents are never captured or described to this system — judge from what you know about the "
             "actual frontmost app and how long it has been in front, the same as any other activity.";
  }
  return {};
}

}  // namespace halvo
