#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Services/ServiceManager.h"
#include "Platform/Services/UnitFile.h"

namespace halvo {

/// Jobs as units of the user's own systemd: "<label>.service", started by "<label>.timer" where there is one.
class SystemdServices : public ServiceManager {
 public:
  struct Options {
    std::filesystem::path unitFolder;                                          ///< the user's own, made when it is missing
    std::function<std::vector<UnitFile>(const std::string& label)> unitFiles;  ///< what registering writes
    double patienceSec = 10;                                                   ///< for a call that only asks
    double changePatienceSec = 25;  ///< for one that changes something: a stop may take the unit's whole TimeoutStopSec and its kill
    std::string systemctl = "systemctl";
  };
  explicit SystemdServices(Options options) : options_(std::move(options)) {}

  Print print(const std::string& label) override;
  std::optional<bool> isDisabled(const std::string& label) override;
  bool isOnlyNotTurnedOn(const std::string& label) override;
  std::optional<ServiceStatus> status(const std::string& label) override;
  /// Does not wait for a job that a timer starts: it may take long to end.
  std::optional<Failure> kickstart(const std::string& label) override;
  std::optional<Failure> bootout(const std::string& label) override;
  /// Writes the files and enables and starts the unit. What fails is taken back.
  std::optional<Failure> registerService(const std::string& label) override;
  /// Nothing registered is no failure. The files go only when the unit is stopped and disabled.
  std::optional<Failure> unregister(const std::string& label) override;
  std::vector<UnitFile> registrationFiles(const std::string& label) override;
  std::optional<Failure> reinstate(const std::string& label, const std::vector<UnitFile>& files) override;
  std::optional<Failure> loadLegacy(const std::string& label) override { return kickstart(label); }
  std::optional<Failure> reload() override { return tried({"daemon-reload"}); }

  using Properties = std::map<std::string, std::string, std::less<>>;
  /// The "key = value" lines of what `systemctl show` says of a unit. A field that says nothing is left out: a job that never ended has
  /// no exit code. One that a signal ended has 128 + its number.
  static std::string render(const Properties& properties);
  static Properties parseShow(std::string_view output);

 private:
  struct Called {
    int status = -1;
    std::string output;
  };
  Called call(std::vector<std::string> words, double patienceSec) const;
  std::optional<Properties> show(const std::string& unit) const;
  /// The unit that is enabled and started: the timer where there is one.
  std::string mainUnit(const std::string& label) const;
  std::optional<Failure> tried(std::vector<std::string> words) const;

  Options options_;
};

}  // namespace halvo
