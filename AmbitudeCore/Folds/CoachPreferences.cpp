#include "AmbitudeCore/Folds/CoachPreferences.h"

#include <array>
#include <stdexcept>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo::CoachPreferencesStore {
namespace {
struct TextKey {
  std::string_view key;
  std::string CoachPreferences::*field;
};
struct SwitchKey {
  std::string_view key;
  bool CoachPreferences::*field;
};
constexpr std::array texts{TextKey{"gateInstructions", &CoachPreferences::gateInstructions},
                           TextKey{"coachInstructions", &CoachPreferences::coachInstructions},
                           TextKey{"classifierInstructions", &CoachPreferences::classifierInstructions}};
constexpr std::array switches{SwitchKey{"standingMemoryEnabled", &CoachPreferences::standingMemoryEnabled},
                              SwitchKey{"medsRemindersEnabled", &CoachPreferences::medsRemindersEnabled},
                              SwitchKey{"pauseMediaOnCheckinEnabled", &CoachPreferences::pauseMediaOnCheckinEnabled},
                              SwitchKey{"developerModeEnabled", &CoachPreferences::developerModeEnabled}};

/// An empty object when there is no file.
JSONObject object(const std::filesystem::path& file) {
  std::string bytes;
  try {
    bytes = readFile(file);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
  const auto value = JSONValue::parse(bytes);
  if (!value || !value->objectValue()) throw std::runtime_error(file.string() + " is not a JSON object");
  return *value->objectValue();
}
}  // namespace

std::filesystem::path url(const std::filesystem::path& dataRoot) { return dataRoot / "coach-preferences.json"; }

CoachPreferences read(const std::filesystem::path& dataRoot) {
  const auto stored = object(url(dataRoot));
  CoachPreferences preferences;
  for (const auto& [key, field] : texts)
    if (auto text = stored.string(key)) preferences.*field = std::move(*text);
  for (const auto& [key, field] : switches)
    if (const auto flag = stored.boolean(key)) preferences.*field = *flag;
  return preferences;
}

void write(const std::filesystem::path& dataRoot, const CoachPreferences& preferences) {
  auto stored = object(url(dataRoot));
  for (const auto& [key, field] : texts) stored.set(std::string(key), preferences.*field);
  for (const auto& [key, field] : switches) stored.set(std::string(key), preferences.*field);
  writeFileAtomically(url(dataRoot), JSONValue(std::move(stored)).dumpPretty() + "\n");
}

std::optional<bool> explicitMedsRemindersEnabled(const std::filesystem::path& dataRoot) {
  return object(url(dataRoot)).boolean("medsRemindersEnabled");
}

}  // namespace halvo::CoachPreferencesStore
