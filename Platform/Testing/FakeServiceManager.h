#pragma once

#include <climits>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Services/ServiceManager.h"

namespace halvo {

/// A service manager that a test drives by hand: what each job is, and which call fails.
class FakeServiceManager : public ServiceManager {
 public:
  struct Job {
    bool isLegacyLoaded = false, isRegistered = false;
    bool startsWhenRegistered = true;  ///< else it exits at once with `exitCode`
    std::optional<int> exitCode = {};
    std::optional<bool> isDisabled = false;
    std::optional<std::string> printFailure = {};
    ServiceStatus statusOnceRegistered = ServiceStatus::enabled;
    std::string program = "/usr/lib/halvo/X";
    int pid = 42;                       ///< the next process has the next
    std::string text = "new";           ///< of the registration; an "old" one starts, whatever a new one does
    bool isOnlyNotTurnedOn = false;     ///< a registration that was broken off
    int answersUntilUnknown = INT_MAX;  ///< then printing it fails
    bool starts() const { return startsWhenRegistered || text == "old"; }
  };
  std::map<std::string, Job, std::less<>> jobs;
  std::vector<std::string> calls;        ///< what was changed, in order: "register", "unregister", ...
  std::optional<std::size_t> failingCall;  ///< the number, from 0, of the call that fails
  std::optional<std::size_t> killingCall;  ///< of the one in the middle of which our own process ends: `Killed` is thrown
  struct Killed {};

  Print print(const std::string& label) override {
    auto& job = jobs[label];
    if (job.printFailure) return Failed{*job.printFailure};
    if (--job.answersUntilUnknown < 0) return Failed{"no answer"};
    if (!job.isRegistered && !job.isLegacyLoaded) return NotLoaded{};
    if (job.isRegistered && job.statusOnceRegistered != ServiceStatus::enabled) return NotLoaded{};
    std::string text = job.isRegistered ? "program = " + job.program + "\n" : "program = /old/X\n";
    if (!job.isRegistered || job.starts()) text += "pid = " + std::to_string(job.pid) + "\n";
    if (job.exitCode) text += "last exit code = " + std::to_string(*job.exitCode) + "\n";
    return Printed{text};
  }
  std::optional<bool> isDisabled(const std::string& label) override {
    return jobs[label].isOnlyNotTurnedOn ? true : jobs[label].isDisabled;
  }
  bool isOnlyNotTurnedOn(const std::string& label) override { return jobs[label].isOnlyNotTurnedOn; }
  std::optional<ServiceStatus> status(const std::string& label) override {
    return jobs[label].isRegistered ? jobs[label].statusOnceRegistered : ServiceStatus::notRegistered;
  }
  std::optional<Failure> kickstart(const std::string& label) override { return change("kickstart", label, [](Job& job) { ++job.pid; }); }
  std::optional<Failure> bootout(const std::string& label) override {
    return change("bootout", label, [](Job& job) { job.isLegacyLoaded = false; });
  }
  std::optional<Failure> registerService(const std::string& label) override {
    return change("register", label, [](Job& job) { job.isRegistered = true, job.isOnlyNotTurnedOn = false, job.text = "new", ++job.pid; });
  }
  std::optional<Failure> unregister(const std::string& label) override {
    return change("unregister", label, [](Job& job) { job.isRegistered = job.isOnlyNotTurnedOn = false; });
  }
  std::vector<UnitFile> registrationFiles(const std::string& label) override {
    return jobs[label].isRegistered ? std::vector<UnitFile>{{label, jobs[label].text}} : std::vector<UnitFile>{};
  }
  std::optional<Failure> reinstate(const std::string& label, const std::vector<UnitFile>& files) override {
    return change("reinstate", label, [&](Job& job) {
      job.isRegistered = true, job.isOnlyNotTurnedOn = false;
      job.text = files.at(0).text;
    });
  }
  std::optional<Failure> loadLegacy(const std::string& label) override {
    return change("loadLegacy", label, [](Job& job) { job.isLegacyLoaded = true; });
  }
  std::optional<Failure> reload() override { return change("reload", "", [](Job&) {}); }

 private:
  std::optional<Failure> change(const char* name, const std::string& label, const std::function<void(Job&)>& how) {
    calls.push_back(name);
    if (failingCall && *failingCall == calls.size() - 1) return Failure{"NSPOSIXErrorDomain", 5, "input/output error"};
    if (killingCall && *killingCall == calls.size() - 1) {
      // What a registration leaves in its middle, made or taken back.
      if (std::string_view(name).ends_with("register")) jobs[label].isRegistered = false, jobs[label].isOnlyNotTurnedOn = true;
      throw Killed{};
    }
    how(jobs[label]);
    return std::nullopt;
  }
};

}  // namespace halvo
