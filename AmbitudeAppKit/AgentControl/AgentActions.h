#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/AgentServiceMigrationRunner.h"
#include "AmbitudeAppKit/AgentControl/BackgroundAgents.h"
#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// What a person, or the start of the application, does to the agents: told agent by agent, never thrown. One action at a time; `states`
/// and `lines` may run beside it.
class AgentActions {
 public:
  struct Dependencies {
    BackgroundAgents::Dependencies control;
    std::filesystem::path unitFolder;    ///< where a registration's files lie
    std::filesystem::path markerFolder;  ///< of moves that were broken off
    std::filesystem::path configFile;    ///< takes the settings of an old installation
    AgentServiceMigration::Precondition allowed = AgentServiceMigration::Precondition::notInstalledCopy;  ///< whether this copy registers
    std::filesystem::path installedFolder = {};  ///< of the copy that does
    std::function<std::optional<std::filesystem::path>()> dataRoot = {};  ///< the present one; absent while there is none
    Clock clock = Clock::system();                                        ///< waits between looks at what was registered
  };
  explicit AgentActions(Dependencies dependencies);

  struct Told {
    std::optional<BackgroundAgent> agent = {};  ///< whose name belongs in front of the words
    std::string words = {};
    std::string detail = {};  ///< what else is known of a failure; may be empty
    bool isDone = true;
  };
  using Tell = std::function<void(const Told&)>;
  using Agents = std::span<const BackgroundAgent>;

  std::vector<BackgroundAgentState> states() const;
  /// What stands in the way of an agent's registration or of its restart, as it was last found.
  std::map<BackgroundAgent, std::string> lines() const;

  /// Why this copy registers nothing; absent when it does.
  std::optional<std::string> refusal() const;
  /// Moves, registers or renews them, and starts them.
  void install(Agents agents, const Tell& tell);
  /// Installs all of them. What ran before and still does has other settings, so it is restarted: by a copy that registers nothing too.
  void installAfterSetup(const Tell& tell);
  /// Goes on with what an older installation or a broken-off move left, and renews what an older copy registered. What the person removed
  /// or stopped stays so. Nothing on a copy that does not register.
  void start(const Tell& tell);
  void restart(Agents agents, const Tell& tell);
  void stop(Agents agents, const Tell& tell);
  /// Takes the files of an old installation too, whose settings are kept: the next start would go on with them.
  void remove(Agents agents, const Tell& tell);
  /// The files of an old installation that are there.
  std::vector<std::filesystem::path> legacyFiles(Agents agents) const;

 private:
  std::map<BackgroundAgent, std::int32_t> running() const;
  bool recoverSettings(const Tell& tell, const std::string& otherwise) const;
  void removeLegacyFile(BackgroundAgent agent) const;
  void noteCaptureIs(bool isRemoved) const;
  Told installOne(BackgroundAgent agent);
  bool hasCurrentUnits(BackgroundAgent agent) const;
  AgentServiceMigrationRunner runner(LogSink log = {}) const;

  Dependencies deps_;
  BackgroundAgents agents_;
  LockedValue<std::map<BackgroundAgent, std::string>> lines_, restartLines_;
};

}  // namespace halvo
