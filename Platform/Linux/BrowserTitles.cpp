#include "Platform/Linux/BrowserTitles.h"

#include <algorithm>
#include <array>

#include "CaptureShared/Foundation/Text.h"
#include "Platform/Desktop/BrowserTabCandidates.h"

namespace halvo::BrowserTitles {
namespace {

/// What a browser calls itself at the end of its window titles.
struct Browser {
  std::string_view windowClass;  ///< WM_CLASS, compared without regard to case
  std::string_view name;
};

constexpr std::array<Browser, 27> browsers{{
    {"firefox", "Mozilla Firefox"},
    {"firefox-esr", "Mozilla Firefox"},
    {"Navigator", "Mozilla Firefox"},
    {"firefox-nightly", "Firefox Nightly"},
    {"firefoxdeveloperedition", "Firefox Developer Edition"},
    {"librewolf", "LibreWolf"},
    {"waterfox", "Waterfox"},
    {"zen", "Zen Browser"},
    {"zen-browser", "Zen Browser"},
    {"Tor Browser", "Tor Browser"},
    {"chromium", "Chromium"},
    {"chromium-browser", "Chromium"},
    {"google-chrome", "Google Chrome"},
    {"google-chrome-beta", "Google Chrome"},
    {"google-chrome-unstable", "Google Chrome"},
    {"brave-browser", "Brave"},
    {"microsoft-edge", "Microsoft Edge"},
    {"microsoft-edge-dev", "Microsoft Edge"},
    {"vivaldi-stable", "Vivaldi"},
    {"opera", "Opera"},
    {"epiphany", "Web"},
    {"org.gnome.Epiphany", "Web"},
    {"falkon", "Falkon"},
    {"org.kde.falkon", "Falkon"},
    {"konqueror", "Konqueror"},
    {"qutebrowser", "qutebrowser"},
    {"midori", "Midori"},
}};

/// Between the page and the browser: Firefox and Falkon write a dash, the Chromium family a hyphen.
constexpr std::array<std::string_view, 3> separators{" — ", " – ", " - "};
/// Behind the browser's name in a private window.
constexpr std::array<std::string_view, 6> privateNotes{" Private Browsing", " (Private Browsing)", " (Incognito)",
                                                       " (InPrivate)",      " (Private)",          " [InPrivate]"};

/// Asked for each window of each sample, so it spares Unicode's folding: the table is ASCII.
const Browser* known(std::string_view windowClass) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
  const auto found = std::find_if(browsers.begin(), browsers.end(), [&](const Browser& browser) {
    return std::equal(windowClass.begin(), windowClass.end(), browser.windowClass.begin(), browser.windowClass.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
  });
  return found == browsers.end() ? nullptr : &*found;
}

bool dropSuffix(std::string_view& text, std::string_view suffix) {
  if (!text.ends_with(suffix)) return false;
  text.remove_suffix(suffix.size());
  return true;
}

}  // namespace

std::vector<std::string> running(const std::vector<WindowInfo>& windows) {
  std::vector<std::string> found;
  for (const auto& window : windows)
    if (known(window.ownerName) && std::find(found.begin(), found.end(), window.ownerName) == found.end())
      found.push_back(window.ownerName);
  return found;
}

std::optional<std::string> pageTitle(std::string_view windowClass, std::string_view windowTitle) {
  const auto* browser = known(windowClass);
  if (!browser) return std::nullopt;
  auto title = Text::trim(windowTitle);
  for (const auto note : privateNotes)
    if (dropSuffix(title, note)) break;
  if (dropSuffix(title, browser->name)) {
    const bool separated =
        std::any_of(separators.begin(), separators.end(), [&](std::string_view mark) { return dropSuffix(title, mark); });
    // A page whose own last word is the browser's name, and no more than that, keeps it.
    if (!separated && !title.empty()) title = Text::trim(windowTitle);
  }
  title = Text::trim(title);
  if (title.empty()) return std::nullopt;
  return std::string(title);
}

std::optional<BrowserTab> activeTab(const std::vector<WindowInfo>& windows, const std::optional<std::string>& frontmostApp) {
  const auto present = running(windows);
  for (const auto& browser : BrowserTabCandidates::ordered(present, present, frontmostApp)) {
    // Only the foremost window has the active tab: when that one is blank, a page in a window behind it isn't being looked at.
    const auto window = std::find_if(windows.begin(), windows.end(), [&](const WindowInfo& candidate) {
      return candidate.ownerName == browser && candidate.layer == WindowInfo::layerNormal;
    });
    if (window == windows.end()) continue;
    if (auto title = pageTitle(browser, window->title)) return BrowserTab{.browser = browser, .title = std::move(*title)};
  }
  return std::nullopt;
}

}  // namespace halvo::BrowserTitles
