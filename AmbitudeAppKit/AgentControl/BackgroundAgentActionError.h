#pragma once

#include <stdexcept>
#include <string>
#include <variant>

#include "AmbitudeAppKit/AgentControl/AgentServiceMigration.h"

namespace halvo {

/// Why an agent could not be turned on or off. `what()` is for the person.
class BackgroundAgentActionError : public std::runtime_error {
 public:
  struct BundleSourceMissing {
    BackgroundAgent agent;  ///< whose program is not where it belongs
  };
  struct RegisterFailed {
    BackgroundAgent agent;
    AgentServiceMigration::ServiceErrorKind kind;
  };
  struct RequiresApproval {
    BackgroundAgent agent;
  };
  struct UnregisterFailed {
    BackgroundAgent agent;
    AgentServiceMigration::ServiceErrorKind kind;
  };
  struct RestartFailed {
    BackgroundAgent agent;
  };
  using Case = std::variant<BundleSourceMissing, RegisterFailed, RequiresApproval, UnregisterFailed, RestartFailed>;

  /// `detail` is the service manager's own words, for the log; may be empty.
  explicit BackgroundAgentActionError(Case which, std::string detail = {});
  const Case& which() const { return case_; }
  const std::string& detail() const { return detail_; }

 private:
  Case case_;
  std::string detail_;
};

}  // namespace halvo
