#include "CaptureShared/DataRoot/AgentConfig.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::AgentConfig {

const std::array<std::string_view, 27> allowedKeys{
    "AMBITCAP_MODEL_BACKEND",
    "AMBITCAP_MODEL",
    "AMBITCAP_MODEL_ENDPOINT",
    "AMBITCAP_FALLBACK_MODEL",
    "AMBITCAP_REASONING_EFFORT",
    "AMBITCHECK_MODEL",
    "OPENROUTER_API_KEY",
    "AMBITCAP_DUMP_REQUESTS",
    "AMBITCAP_MAIN_WINDOW_CLOSE_EVENT",
    "AMBITCAP_LAYER3",
    "AMBITCAP_GATE_LOG",
    "AMBITCAP_USER_NAME",
    "AMBITCAP_GATE_UNCONSTRAINED",
    "AMBITCAP_DREAM_REQUIRE_AC",
    "AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC",
    "AMBITCAP_GATE_AWAY_MAX_INTERVAL_SEC",
    "AMBITCAP_OFFLINE_MODE",
    "AMBITCAP_CLASSIFY_REQUIRE_AC",
    "AMBITCAP_CLASSIFY_BATTERY_MAX_INTERVAL_SEC",
    "AMBITCAP_CLASSIFY_BATTERY_MIN_INTERVAL_SEC",
    "AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC",
    "AMBITCAP_UNANSWERED_CHECKIN_HOLD_MAX_SEC",
    "AMBITCAP_OLLAMA_KEEP_ALIVE",
    "AMBITCAP_PROXY_URL",
    "AMBITCAP_LOCAL_INFERENCE_ENDPOINT",
    "AMBITCAP_COACH_BATTERY_MODE",
    "AMBITCAP_CALL_PAUSE",
};

const std::array<std::pair<std::string_view, std::string_view>, 7> defaultEnvForNewInstall{{
    {"AMBITCAP_LAYER3", "1"},
    {"AMBITCAP_MODEL_BACKEND", "ollama"},
    {"AMBITCAP_OFFLINE_MODE", "1"},
    {"AMBITCAP_GATE_LOG", "1"},
    {"AMBITCAP_REASONING_EFFORT", "low"},
    {"AMBITCHECK_MODEL", "gemma4:12b-it-qat"},
    {"AMBITCAP_MAIN_WINDOW_CLOSE_EVENT", "1"},
}};

namespace {

/// The object that the file holds: empty for no file or a blank one. Throws `malformedConfig`.
JSONObject readForWriting(const fs::path& file) {
  std::string text;
  try {
    text = readFile(file);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw ConfigWriteError::malformedConfig(file, error.code().message());
  }
  if (const auto parsed = parse(text); parsed.isMalformed()) throw ConfigWriteError::malformedConfig(file, *parsed.parseError);
  const auto value = JSONValue::parse(text);
  return value && value->objectValue() ? *value->objectValue() : JSONObject();
}

void write(const fs::path& file, JSONObject root, JSONObject env) {
  root.set(std::string(envObjectKey), std::move(env));
  fs::create_directories(file.parent_path());
  writeFileAtomically(file, JSONValue(std::move(root)).dumpPretty() + "\n");
  DataPaths::invalidateConfigCache();
}

JSONObject envOf(const JSONObject& root) {
  const auto* env = root.find(envObjectKey);
  return env && env->objectValue() ? *env->objectValue() : JSONObject();
}

}  // namespace

bool isAllowed(std::string_view key) { return std::find(allowedKeys.begin(), allowedKeys.end(), key) != allowedKeys.end(); }

ParseResult parse(std::string_view text) {
  ParseResult result;
  auto failed = [&](const char* why) {
    result.parseError = why;
    return result;
  };
  if (!Text::isValidUTF8(text)) return failed("config is not valid UTF-8");
  if (Text::isBlank(text)) return result;
  const auto root = JSONValue::parse(text);
  if (!root) return failed("config is not valid JSON");
  if (!root->objectValue()) return failed("config must be a JSON object");
  const auto* env = root->find(envObjectKey);
  if (!env) return result;
  if (!env->objectValue()) return failed("\"env\" must be an object of string values");
  for (const auto& [key, value] : *env->objectValue()) {
    if (const auto* setting = value.stringValue(); setting && isAllowed(key))
      result.settings.emplace(key, *setting);
    else
      result.unknownKeys.push_back(key);
  }
  return result;
}

ParseResult load(const std::optional<fs::path>& file) {
  try {
    return parse(readFile(file ? *file : DataPaths::configURL()));
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    return {.parseError = "config could not be read: " + error.code().message()};
  }
}

std::vector<std::string> bootstrapProcessEnvironment(const std::optional<fs::path>& file) {
  std::vector<std::string> applied;
  for (const auto& [key, value] : load(file).settings) {
    const char* present = std::getenv(key.c_str());
    if (present && *present) continue;
    ::setenv(key.c_str(), value.c_str(), 1);
    applied.push_back(key);
  }
  return applied;
}

std::vector<std::string> missingKeys(const std::vector<std::string>& required, const std::optional<Settings>& settings,
                                     const Environment& environment) {
  const auto fromFile = settings ? *settings : load().settings;
  std::vector<std::string> missing;
  for (const auto& key : required) {
    const auto inEnvironment = environment.find(key);
    const auto inFile = fromFile.find(key);
    if ((inEnvironment == environment.end() || inEnvironment->second.empty()) && (inFile == fromFile.end() || inFile->second.empty()))
      missing.push_back(key);
  }
  return missing;
}

DataRootStatus dataRootStatus() {
  const bool configured = DataPaths::dataRootSource() != DataPaths::RootSource::unconfigured;
  if (DataPaths::isDataRootAvailable()) return Available{DataPaths::dataRoot()};
  return Missing{configured ? DataPaths::dataRoot() : DataPaths::defaultRootForNewInstall(), configured};
}

std::string describe(const DataRootStatus& status) {
  return match(
      status, [](const Available& root) { return "Data root: " + root.url.string(); },
      [](const Missing& root) {
        if (root.wasExplicitlyConfigured)
          return "Data root " + root.url.string() + " is not mounted — the agents will record nothing until it is.";
        return "No data root configured, and the default " + root.url.string() +
               " is not present. Set it in the app's Data Location panel, or add \"dataRoot\" to " + DataPaths::configURL().string() + ".";
      });
}

ConfigWriteError ConfigWriteError::unsupportedKeys(const std::vector<std::string>& keys) {
  const bool one = keys.size() == 1;
  return {Kind::unsupportedKeys, Text::join(keys, ", ") + (one ? " isn't a setting" : " aren't settings") +
                                     " this file can apply, so writing " + (one ? "it" : "them") + " would look configured and do nothing."};
}

ConfigWriteError ConfigWriteError::malformedConfig(const fs::path& file, const std::string& reason) {
  return {Kind::malformedConfig, file.string() + " is malformed (" + reason +
                                     ") — refusing to save, so nothing already in it is lost. Fix it by hand, or delete it and reconfigure."};
}

void setEnvValue(const std::optional<std::string>& value, std::string_view key, const fs::path& file) {
  setEnvSettings({{std::string(key), value}}, file);
}

void setEnvSettings(const std::map<std::string, std::optional<std::string>>& values, const fs::path& file) {
  std::vector<std::string> unsupported;
  for (const auto& [key, value] : values)
    if (!isAllowed(key)) unsupported.push_back(key);
  if (!unsupported.empty()) throw ConfigWriteError::unsupportedKeys(unsupported);
  auto root = readForWriting(file);
  auto env = envOf(root);
  for (const auto& [key, value] : values) {
    if (const auto trimmed = value ? Text::trim(*value) : std::string_view(); trimmed.empty())
      env.erase(key);
    else
      env.set(key, trimmed);
  }
  write(file, std::move(root), std::move(env));
}

void seedDefaultEnvIfAbsent(const fs::path& file, std::uint64_t physicalMemoryBytes, const RecommendedModel& recommendedDefault) {
  auto root = readForWriting(file);
  auto env = envOf(root);
  bool added = false;
  for (const auto& [key, standard] : defaultEnvForNewInstall) {
    std::optional<std::string> value(standard);
    if (key == "AMBITCHECK_MODEL") value = recommendedDefault(physicalMemoryBytes);
    if (!value || env.contains(key)) continue;
    env.set(std::string(key), *value);
    added = true;
  }
  if (added) write(file, std::move(root), std::move(env));
}

std::string exampleContents() {
  JSONObject env;
  for (const auto& [key, value] : defaultEnvForNewInstall) env.set(std::string(key), value);
  const JSONValue::Array readme{
      "Ambitude — machine-specific settings for the background agents.",
      "Read at startup by the capture supervisor, the classifier, the coach driver, the",
      "nightly consolidation job, and the app itself. Anything already set in the",
      "environment wins over this file.",
      "",
      "dataRoot: where captured data lives. Not set here on purpose — pick it in the app's",
      "Data Location panel. Nothing falls back to your boot disk if it is missing, so an",
      "unmounted volume means the agents record nothing rather than quietly filling your drive.",
      "",
      "env: passed to the agents as environment variables. Only a fixed set of keys is honoured;",
      "anything else is ignored and reported rather than silently applied.",
  };
  return JSONValue(JSONObject{{"_readme", readme}, {"env", env}}).dumpPretty() + "\n";
}

bool writeExampleIfAbsent(const fs::path& file) {
  if (fs::symlink_status(file).type() != fs::file_type::not_found) return false;
  fs::create_directories(file.parent_path());
  writeFileAtomically(file, exampleContents());
  DataPaths::invalidateConfigCache();
  return true;
}

std::optional<std::string> redactedSuffix(const std::optional<std::string>& secret) {
  if (!secret || secret->empty()) return std::nullopt;
  const auto length = Text::count(*secret);
  if (length < 8) return "…";
  return "…" + secret->substr(Text::prefix(*secret, length - 4).size());
}

}  // namespace halvo::AgentConfig
