#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgentActionError.h"
#include "AmbitudeAppKit/AgentControl/BackgroundAgentState.h"
#include "Platform/Services/ServiceManager.h"

namespace halvo {

/// The agents as the service manager sees them, and the person's hand on them.
class BackgroundAgents {
 public:
  enum class RestartOutcome { notLoaded, restarted };

  struct Dependencies {
    ServiceManager& services;
    std::filesystem::path programFolder;  ///< where the installed programs are
    std::filesystem::path legacyFolder;   ///< where old property lists are, "<label>.plist"
    std::filesystem::path localModelStatusFile;
    std::function<std::vector<std::string>(BackgroundAgent)> missingConfigKeys = {};
  };
  explicit BackgroundAgents(Dependencies dependencies) : deps_(std::move(dependencies)) {}

  /// Only asks: nothing is started or stopped. Never throws.
  BackgroundAgentState state(BackgroundAgent agent) const;
  std::vector<BackgroundAgentState> statuses(std::span<const BackgroundAgent> agents) const;

  // These throw `BackgroundAgentActionError`.
  RestartOutcome restart(BackgroundAgent agent) const;
  /// Ends it until the next login; it stays installed.
  void stop(BackgroundAgent agent) const;
  /// Takes its registration back, and ends a job that an older installation left.
  void remove(BackgroundAgent agent) const;

 private:
  Dependencies deps_;
};

/// What a person is told of a state, without its pid.
const char* describe(const BackgroundAgentState::RunState& state);

}  // namespace halvo
