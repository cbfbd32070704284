#pragma once

#include <filesystem>

#include "AmbitudeAppKit/AgentControl/AgentActions.h"
#include "CaptureShared/Foundation/Environment.h"
#include "Platform/Linux/SystemdServices.h"

namespace halvo {

/// This account's service manager and folders, and the agents in them.
class AgentPlace {
 public:
  /// Who may register: the installed copy, or this one wherever it is.
  enum class Copy { installed, anywhere };
  explicit AgentPlace(Copy copy = Copy::installed);
  AgentPlace(const AgentPlace&) = delete;
  AgentPlace& operator=(const AgentPlace&) = delete;

  AgentActions& actions() { return actions_; }
  SystemdServices& services() { return services_; }
  const Environment& environment() const { return environment_; }

 private:
  Environment environment_ = processEnvironment();
  std::filesystem::path programs_, unitFolder_;
  SystemdServices services_;
  AgentActions actions_;
};

}  // namespace halvo
