#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Desktop/DesktopFacts.h"

/// A browser's tab from its window: "page title — Browser name". Pure.
namespace halvo::BrowserTitles {

/// The window classes of `windows` that are browsers we can read, each once, front to back.
std::vector<std::string> running(const std::vector<WindowInfo>& windows);

/// The page title in a browser's window title: without the browser's own name behind it and without the note of a private window. Absent
/// when the class is no browser we know or when no page is left (a new, untitled window).
std::optional<std::string> pageTitle(std::string_view windowClass, std::string_view windowTitle);

/// The active tab: of the frontmost running browser that shows a page, then of the others, each by its foremost ordinary window.
std::optional<BrowserTab> activeTab(const std::vector<WindowInfo>& windows, const std::optional<std::string>& frontmostApp);

}  // namespace halvo::BrowserTitles
