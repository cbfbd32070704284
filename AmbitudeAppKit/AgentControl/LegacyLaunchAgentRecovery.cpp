#include "AmbitudeAppKit/AgentControl/LegacyLaunchAgentRecovery.h"

#include <set>
#include <system_error>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::LegacyLaunchAgentRecovery {

namespace {

/// Moves behind the next `<tag>...</tag>` and answers what is in it, its entities resolved. Absent, and nothing moved, when something else
/// comes first.
std::optional<std::string> element(std::string_view& text, std::string_view tag) {
  const auto trimmed = Text::trim(text);
  const std::string open = "<" + std::string(tag) + ">", close = "</" + std::string(tag) + ">";
  if (!trimmed.starts_with(open)) return std::nullopt;
  const auto end = trimmed.find(close);
  if (end == std::string_view::npos) return std::nullopt;
  std::string value(trimmed.substr(open.size(), end - open.size()));
  // The ampersand last, so that what it stood before is not resolved again.
  for (const auto& [entity, character] : {std::pair{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}})
    value = Text::replaceAll(std::move(value), entity, character);
  text = trimmed.substr(end + close.size());
  return value;
}

}  // namespace

std::optional<std::map<std::string, std::string>> environmentIn(std::string_view plist) {
  constexpr std::string_view opening = "<dict>", closing = "</dict>", key = "<key>EnvironmentVariables</key>";
  if (plist.find("<plist") == std::string_view::npos || plist.find("</plist>") == std::string_view::npos) return std::nullopt;
  std::map<std::string, std::string> environment;
  const auto at = plist.find(key);
  if (at == std::string_view::npos) return environment;
  auto rest = Text::trim(plist.substr(at + key.size()));
  if (rest.starts_with("<dict/>")) return environment;
  if (!rest.starts_with(opening)) return std::nullopt;
  rest.remove_prefix(opening.size());
  while (!Text::trim(rest).starts_with(closing)) {
    const auto name = element(rest, "key");
    const auto text = name ? element(rest, "string") : std::nullopt;
    if (!text) return std::nullopt;
    environment[*name] = *text;
  }
  return environment;
}

Recovery plan(const std::map<std::string, std::string>& plistTexts, const AgentConfig::Settings& configured) {
  Recovery recovery;
  std::map<std::string, std::set<std::string>> found;
  for (const auto& [file, text] : plistTexts) {
    const auto environment = environmentIn(text);
    if (!environment) recovery.readErrors.push_back(tr("{}: not a property list in XML", file));
    for (const auto& [key, value] : environment.value_or(std::map<std::string, std::string>{}))
      if (AgentConfig::isAllowed(key) && !Text::isBlank(value)) found[key].insert(value);
  }
  for (const auto& [key, values] : found) {
    const auto present = configured.find(key);
    const bool isConfigured = present != configured.end() && !Text::isBlank(present->second);
    if (values.size() > 1 || (isConfigured && *values.begin() != present->second)) {
      recovery.conflictingKeys.push_back(key);
    } else if (!isConfigured) {
      recovery.settings[key] = *values.begin();
      recovery.migratedKeys.push_back(key);
    }
  }
  return recovery;
}

Recovery plan(const std::filesystem::path& legacyFolder, const AgentConfig::Settings& configured) {
  std::map<std::string, std::string> texts;
  std::vector<std::string> errors;
  for (const auto& agent : backgroundAgents) {
    const auto file = legacyFolder / (label(agent.agent) + ".plist");
    try {
      texts[file.filename()] = readFile(file);
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::no_such_file_or_directory) errors.push_back(file.filename().string() + ": " + error.code().message());
    }
  }
  auto recovery = plan(texts, configured);
  recovery.readErrors.insert(recovery.readErrors.begin(), errors.begin(), errors.end());
  return recovery;
}

}  // namespace halvo::LegacyLaunchAgentRecovery
