#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "CaptureShared/Provisioning/LlamaServerStatus.h"
#include "Platform/Services/ServiceManager.h"

namespace halvo {

/// What one agent is doing, as the service manager tells it.
struct BackgroundAgentState {
  struct Running {
    std::int32_t pid = 0;
    bool operator==(const Running&) const = default;
  };
  struct Idle {
    std::optional<std::int32_t> lastExitCode = {};
    std::optional<std::int64_t> runs = {};
    bool operator==(const Idle&) const = default;
  };
  struct Failing {
    std::int32_t lastExitCode = 0;
    bool operator==(const Failing&) const = default;
  };
  struct Unknown {
    std::string text;  ///< what the service manager said
    bool operator==(const Unknown&) const = default;
  };
  struct NotInstalled {
    bool operator==(const NotInstalled&) const = default;
  };
  struct InstalledNotLoaded {
    bool operator==(const InstalledNotLoaded&) const = default;
  };
  struct RequiresApproval {
    bool operator==(const RequiresApproval&) const = default;
  };
  using RunState = std::variant<Running, Idle, Failing, Unknown, NotInstalled, InstalledNotLoaded, RequiresApproval>;

  BackgroundAgent agent = BackgroundAgent::captureSupervisor;
  RunState runState = Unknown{};
  std::vector<std::string> missingConfigKeys = {};
  std::optional<bool> launchdDisabled = {};
  std::optional<LlamaServerStatus> localModelStatus = {};  ///< of the local model's agent only
  bool runsFromLegacyPlist = false;
  std::optional<ServiceStatus> registration = {};  ///< absent when it can't be told
  std::optional<std::string> since = {};  ///< when it came to be so, in the service manager's words
};

}  // namespace halvo
