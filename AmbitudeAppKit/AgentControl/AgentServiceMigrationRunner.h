#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/AgentServiceMigration.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// Carries out what `AgentServiceMigration` decides. Broken off anywhere, a job has its legacy file or a registration that started, or the
/// next run goes on: a marker file stands from before the first change until the job is settled or as it was.
class AgentServiceMigrationRunner {
 public:
  struct Dependencies {
    ServiceManager& services;
    std::filesystem::path programFolder;  ///< of this bundle
    std::filesystem::path legacyFolder;   ///< old property lists, "<label>.plist"
    std::filesystem::path markerFolder;   ///< made when it is missing
    std::function<void(const std::filesystem::path&)> removeFile;  ///< throws `std::system_error`
    Clock clock = Clock::system();
    LogSink log = {};
    double settleSec = 0.5;  ///< between two looks at a job that was just registered
    int looks = 4;
  };
  explicit AgentServiceMigrationRunner(Dependencies dependencies) : deps_(std::move(dependencies)) {}

  struct Outcome {
    BackgroundAgent agent = BackgroundAgent::captureSupervisor;
    AgentServiceMigration::Action action = AgentServiceMigration::Step::nothing;
    std::string line = {};  ///< for the person; empty when there is nothing to say
    bool isSettled = true;  ///< false: it is as it was, or a later run has to go on
  };
  std::vector<Outcome> run(AgentServiceMigration::Precondition precondition, std::span<const BackgroundAgent> agents);

  /// Has the next run do a registration over, as after a move that was broken off. Throws `std::system_error`.
  void mark(BackgroundAgent agent) const;
  /// The facts that the decision is made on.
  AgentServiceMigration::Job observe(BackgroundAgent agent) const;

 private:
  Outcome carryOut(BackgroundAgent agent, const AgentServiceMigration::Job& job, AgentServiceMigration::Step step);
  Outcome retire(BackgroundAgent agent, const AgentServiceMigration::Job& job, Outcome outcome);
  Outcome replace(BackgroundAgent agent, const AgentServiceMigration::Job& job, Outcome outcome);
  Outcome rollBack(BackgroundAgent agent, const AgentServiceMigration::Job& job, Outcome outcome, const std::vector<UnitFile>& stood,
                   const std::string& reason);
  /// Brings back what ran; false when it could not.
  bool bringBack(const AgentServiceMigration::Job& job, const std::vector<UnitFile>& stood);
  Outcome finish(BackgroundAgent agent, const AgentServiceMigration::Job& job, Outcome outcome);
  /// Absent when, at the last look, its state could not be told.
  std::optional<AgentServiceMigration::Verdict> prove(BackgroundAgent agent) const;
  std::filesystem::path marker(BackgroundAgent agent) const { return deps_.markerFolder / label(agent); }
  std::filesystem::path legacyFile(BackgroundAgent agent) const { return deps_.legacyFolder / (label(agent) + ".plist"); }
  void say(const std::string& line) const {
    if (deps_.log) deps_.log(line);
  }

  Dependencies deps_;
};

}  // namespace halvo
