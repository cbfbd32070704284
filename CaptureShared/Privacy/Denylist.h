#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

namespace halvo {

/// The apps whose windows are never captured: password managers, authenticators, and the system's own security prompts.
class Denylist {
 public:
  struct AppIdentity {
    std::optional<std::string> name = {};      ///< display name; on Linux the window's class
    std::optional<std::string> bundleId = {};  ///< the application's identifier
    bool operator==(const AppIdentity&) const = default;
  };

  /// The names of the environment key `AMBITCAP_DENYLIST` (separated by commas) when it is set to more than blanks, else `defaultAppNames`.
  /// The system's own prompts and the identifiers stay excluded either way.
  static Denylist fromEnvironment(const Environment& environment);

  static const std::vector<std::string>& defaultAppNames();  ///< 19
  static const std::vector<std::string>& bundleIds();        ///< 14
  /// What these apps and prompts are called on a Linux desktop, as window class or identifier.
  static const std::vector<std::string>& linuxNames();

  const std::vector<std::string>& appNames() const { return appNames_; }

  /// True on a match of the name or the identifier, compared without case.
  bool excludes(const std::optional<std::string>& appName, const std::optional<std::string>& bundleId) const;
  bool excludesAny(const std::vector<AppIdentity>& identities) const;

 private:
  explicit Denylist(std::vector<std::string> appNames) : appNames_(std::move(appNames)) {}
  std::vector<std::string> appNames_;
};

}  // namespace halvo
