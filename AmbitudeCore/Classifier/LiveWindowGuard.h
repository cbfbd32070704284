#pragma once

#include <optional>
#include <string>
#include <variant>

#include "CaptureShared/Privacy/ContentWithheldReason.h"
#include "CaptureShared/Privacy/Denylist.h"
#include "CaptureShared/Privacy/OnScreenWindowRecord.h"
#include "Platform/Desktop/DesktopProbes.h"

/// Whether a rectangle of the screen may be looked at, by the windows as they are at this instant: the sampled rows can be seconds old.
namespace halvo::LiveWindowGuard {

struct Clear {
  bool operator==(const Clear&) const = default;
};
/// An excluded app is in front, or over the rectangle.
struct Withheld {
  ContentWithheldReason reason = ContentWithheldReason::frontmostAppDenylisted;
  bool operator==(const Withheld&) const = default;
};
/// What is on the screen can't be told, or is no longer what the moment is about: nothing is captured.
struct Unsure {
  std::string why = {};
  bool operator==(const Unsure&) const = default;
};
using Answer = std::variant<Clear, Withheld, Unsure>;

/// `expectedApp` is the app that the moment is about.
Answer look(DesktopProbes& probes, const Denylist& denylist, const ScreenBounds& captured, const std::optional<std::string>& expectedApp);

/// Whether an app by itself may be looked at.
std::optional<ContentWithheldReason> byName(const Denylist& denylist, const std::optional<std::string>& app,
                                            const std::optional<std::string>& bundleId);

}  // namespace halvo::LiveWindowGuard
