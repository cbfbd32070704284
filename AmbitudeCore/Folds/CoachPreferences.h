#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace halvo {

/// A person's standing notes and switches.
struct CoachPreferences {
  std::string gateInstructions = {};        ///< for the gate: when to interrupt
  std::string coachInstructions = {};       ///< for the coach: how to talk
  std::string classifierInstructions = {};  ///< for the classifier: what things mean
  bool standingMemoryEnabled = true;        ///< what was learned carries across days
  bool medsRemindersEnabled = false;        ///< nobody is asked about medication who did not ask for it
  bool pauseMediaOnCheckinEnabled = false;  ///< pressing pause in another app is theirs to allow
  bool developerModeEnabled = false;

  bool operator==(const CoachPreferences&) const = default;
};

/// `coach-preferences.json` under the data root: one object, keys as the fields.
namespace CoachPreferencesStore {

std::filesystem::path url(const std::filesystem::path& dataRoot);

/// The defaults when the file is absent, and for a key that is missing or of another type. Throws `std::runtime_error` naming the file when
/// it can't be read or is not a JSON object: a note that is there must not pass for one that is not.
CoachPreferences read(const std::filesystem::path& dataRoot);
/// Replaces the seven keys in one step and keeps any other key that the file holds. Throws as `read`, `std::system_error` when the file
/// can't be written, `JSONEncodingError` for text that is not UTF-8; the old file then stays as it was.
void write(const std::filesystem::path& dataRoot, const CoachPreferences& preferences);
/// The switch only when the file says so: absent and false are different answers. Throws as `read`.
std::optional<bool> explicitMedsRemindersEnabled(const std::filesystem::path& dataRoot);

}  // namespace CoachPreferencesStore
}  // namespace halvo
