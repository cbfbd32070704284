#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/DataRoot/AgentConfig.h"

/// Settings that stand only in the property lists of an old installation, brought into `config.json` before those lists go.
namespace halvo::LegacyLaunchAgentRecovery {

struct Recovery {
  std::map<std::string, std::optional<std::string>> settings = {};  ///< what is to be written
  std::vector<std::string> migratedKeys = {};                       ///< sorted, as the next
  std::vector<std::string> conflictingKeys = {};                    ///< differ between two lists, or from what is configured, which wins
  std::vector<std::string> readErrors = {};                         ///< "<file>: <why>"
  bool operator==(const Recovery&) const = default;
};

/// The "EnvironmentVariables" of an XML property list; absent when the text is none.
std::optional<std::map<std::string, std::string>> environmentIn(std::string_view plist);

/// Only keys that `config.json` honours are taken.
Recovery plan(const std::map<std::string, std::string>& plistTexts, const AgentConfig::Settings& configured);
/// Reads every agent's list in the folder. A file that can't be read is a read error; an absent one is nothing.
Recovery plan(const std::filesystem::path& legacyFolder, const AgentConfig::Settings& configured);

}  // namespace halvo::LegacyLaunchAgentRecovery
