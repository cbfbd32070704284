#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Services/UnitFile.h"

namespace halvo {

/// How a registration stands.
enum class ServiceStatus { notRegistered, enabled, requiresApproval, notFound };

/// What keeps background programs alive, in the user's own domain. A job goes by its label. Never throws: every operation answers.
class ServiceManager {
 public:
  struct Printed {
    std::string text;  ///< lines of the form "key = value": "pid", "last exit code", "runs", "program", "path", "since"
    bool operator==(const Printed&) const = default;
  };
  struct NotLoaded {
    bool operator==(const NotLoaded&) const = default;
  };
  struct Failed {
    std::string text;
    bool operator==(const Failed&) const = default;
  };
  using Print = std::variant<Printed, NotLoaded, Failed>;

  /// Why an operation failed.
  struct Failure {
    std::string domain;
    int code = 0;
    std::string text;
    bool operator==(const Failure&) const = default;
  };

  virtual ~ServiceManager() = default;
  virtual Print print(const std::string& label) = 0;
  /// Whether the person or the system holds the job off; absent when that can't be told.
  virtual std::optional<bool> isDisabled(const std::string& label) = 0;
  /// Whether all that holds the job off is a registration that was not turned on, which is also what a broken-off one leaves.
  virtual bool isOnlyNotTurnedOn(const std::string& label) = 0;
  /// Absent when that can't be told.
  virtual std::optional<ServiceStatus> status(const std::string& label) = 0;
  /// Ends the job if it runs and starts it.
  virtual std::optional<Failure> kickstart(const std::string& label) = 0;
  /// Ends the job; its registration stays.
  virtual std::optional<Failure> bootout(const std::string& label) = 0;
  virtual std::optional<Failure> registerService(const std::string& label) = 0;
  virtual std::optional<Failure> unregister(const std::string& label) = 0;
  /// The files of the registration that stands, for `reinstate`; none when there is none.
  virtual std::vector<UnitFile> registrationFiles(const std::string& label) = 0;
  /// Registers with these files in place of this copy's own, and starts the job.
  virtual std::optional<Failure> reinstate(const std::string& label, const std::vector<UnitFile>& files) = 0;
  /// Starts the job that an older installation left with the manager.
  virtual std::optional<Failure> loadLegacy(const std::string& label) = 0;
  /// Has the manager read its units and its environment's files again; what starts from then on gets them.
  virtual std::optional<Failure> reload() = 0;
};

}  // namespace halvo
