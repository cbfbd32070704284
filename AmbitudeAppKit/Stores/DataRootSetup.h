#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// Choosing where a new installation keeps what it records.
namespace halvo::DataRootSetup {

enum class State {
  ready,         ///< there is a root
  unconfigured,  ///< none was ever chosen
  away,          ///< one was chosen and isn't there now; it is never made anew
  damaged        ///< `config.json` can't be read, so that nobody knows
};
/// Of the present moment: `config.json` is read again.
State state();
/// Why nothing is recorded, for a person; empty when ready.
std::string reason(State state);

/// Why a text is no place for a data root; absent when it is one: a folder of its own that holds nothing else, or one that can be made in a
/// folder that is there.
std::optional<std::string> objection(const std::string& text);

struct Choice {
  std::filesystem::path root = {};
  std::optional<std::string> model = {};                  ///< which model judges
  std::optional<std::uint64_t> physicalMemoryBytes = {};  ///< picks the model that none was chosen for
};
/// Makes the folder, writes the settings of a new installation where there are none, and names the root last. Throws `std::exception`s with
/// words for a person: an objection, or why something could not be written.
void carryOut(const Choice& choice);

}  // namespace halvo::DataRootSetup
