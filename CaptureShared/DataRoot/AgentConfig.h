#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

/// `config.json`: the machine's settings for the agents. Whatever the environment already holds wins over it.
namespace halvo::AgentConfig {

namespace fs = std::filesystem;

using Settings = std::map<std::string, std::string, std::less<>>;

/// The only keys honoured from the file's `env`. AMBITCAP_DATA_ROOT is not among them: it is read from the real environment alone.
extern const std::array<std::string_view, 27> allowedKeys;
/// What a new install starts with.
extern const std::array<std::pair<std::string_view, std::string_view>, 7> defaultEnvForNewInstall;
inline constexpr std::string_view envObjectKey = "env";

bool isAllowed(std::string_view key);

struct ParseResult {
  Settings settings = {};                      ///< the accepted pairs
  std::vector<std::string> unknownKeys = {};   ///< sorted
  std::optional<std::string> parseError = {};
  bool isMalformed() const { return parseError.has_value(); }
  bool operator==(const ParseResult&) const = default;
};
ParseResult parse(std::string_view text);
/// An absent file is empty settings; an unreadable one is a parse error.
ParseResult load(const std::optional<fs::path>& file = {});

/// Copies the file's settings into the process environment where that has no value or an empty one, and answers the keys it set, sorted. Call it
/// before any thread starts and before anything reads the environment.
std::vector<std::string> bootstrapProcessEnvironment(const std::optional<fs::path>& file = {});

/// The keys of `required`, in their order, that have a value that is not empty in neither place.
std::vector<std::string> missingKeys(const std::vector<std::string>& required, const std::optional<Settings>& settings,
                                     const Environment& environment);

struct Available {
  fs::path url;
  bool operator==(const Available&) const = default;
};
struct Missing {
  fs::path url;
  bool wasExplicitlyConfigured = false;
  bool operator==(const Missing&) const = default;
};
using DataRootStatus = std::variant<Available, Missing>;
DataRootStatus dataRootStatus();
std::string describe(const DataRootStatus& status);

/// A write that was refused. Nothing was changed.
class ConfigWriteError : public std::runtime_error {
 public:
  enum class Kind { unsupportedKeys, malformedConfig };
  static ConfigWriteError unsupportedKeys(const std::vector<std::string>& keys);
  static ConfigWriteError malformedConfig(const fs::path& file, const std::string& reason);
  Kind kind() const { return kind_; }

 private:
  ConfigWriteError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind_;
};

/// Sets one key of `env`; an absent or blank value removes it. Throws `ConfigWriteError`, `std::system_error`.
void setEnvValue(const std::optional<std::string>& value, std::string_view key, const fs::path& file);
/// Several keys at once, each as `setEnvValue`; one unsupported key refuses them all.
void setEnvSettings(const std::map<std::string, std::optional<std::string>>& values, const fs::path& file);

/// Picks a model's name for a machine's memory in bytes; absent when none fits.
using RecommendedModel = std::function<std::optional<std::string>(std::uint64_t physicalMemoryBytes)>;
/// Adds each default that `env` lacks; what it has stays. Writes nothing when nothing is missing.
void seedDefaultEnvIfAbsent(const fs::path& file, std::uint64_t physicalMemoryBytes, const RecommendedModel& recommendedDefault);

/// The text of a fresh `config.json`.
std::string exampleContents();
/// Writes it where no file is; whether it did.
bool writeExampleIfAbsent(const fs::path& file);

/// How a stored key is shown: absent for none, "…" for a short one, else "…" and its last 4 characters.
std::optional<std::string> redactedSuffix(const std::optional<std::string>& secret);

}  // namespace halvo::AgentConfig
