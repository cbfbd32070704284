#include "AmbitudeAppKit/AgentControl/AgentServiceMigrationRunner.h"

#include <system_error>

#include "AmbitudeAppKit/AgentControl/LaunchdPrint.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace fs = std::filesystem;
using namespace AgentServiceMigration;

namespace {

bool isThere(const fs::path& file) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(file, ignored));
}

std::optional<LaunchdPrint> printed(const ServiceManager::Print& print) {
  const auto* text = std::get_if<ServiceManager::Printed>(&print);
  return text ? std::optional(LaunchdPrint::parse(text->text)) : std::nullopt;
}

}  // namespace

Job AgentServiceMigrationRunner::observe(BackgroundAgent agent) const {
  const auto name = label(agent);
  const auto print = deps_.services.print(name);
  const auto status = deps_.services.status(name);
  Job job{.label = name,
          .legacyPlistPresent = isThere(legacyFile(agent)),
          .disabled = deps_.services.isDisabled(name),
          .interrupted = isThere(marker(agent)),
          .serviceStatus = status.value_or(ServiceStatus::notRegistered)};
  // What a broken-off move left is nobody's wish to hold the job off.
  if (job.interrupted && job.disabled == true && deps_.services.isOnlyNotTurnedOn(name)) job.disabled = false;
  // A job of which half is unknown is unknown.
  if (status && !std::holds_alternative<ServiceManager::Failed>(print)) job.loaded = std::holds_alternative<ServiceManager::Printed>(print);
  if (const auto text = printed(print); text && text->program) job.runningBundleExists = isThere(*text->program);
  return job;
}

void AgentServiceMigrationRunner::mark(BackgroundAgent agent) const {
  fs::create_directories(deps_.markerFolder);
  writeFileAtomically(marker(agent), "");
}

std::vector<AgentServiceMigrationRunner::Outcome> AgentServiceMigrationRunner::run(Precondition precondition,
                                                                                   std::span<const BackgroundAgent> agents) {
  std::vector<Job> jobs;
  for (const auto agent : agents) jobs.push_back(observe(agent));
  const auto actions = plan(precondition, jobs);
  std::vector<Outcome> outcomes;
  for (std::size_t i = 0; i < jobs.size(); ++i)
    outcomes.push_back(match(
        actions[i],
        [&](const Leave& leave) {
          return Outcome{.agent = agents[i], .action = leave, .line = rowLine(leave.reason), .isSettled = false};
        },
        [&](Step step) { return carryOut(agents[i], jobs[i], step); }));
  return outcomes;
}

AgentServiceMigrationRunner::Outcome AgentServiceMigrationRunner::carryOut(BackgroundAgent agent, const Job& job, Step step) {
  Outcome outcome{.agent = agent, .action = step};
  switch (step) {
    case Step::nothing: return outcome;
    case Step::retire: return retire(agent, job, std::move(outcome));
    case Step::move:
    case Step::registerIt:
    case Step::reregister: return replace(agent, job, std::move(outcome));
  }
  return outcome;
}

AgentServiceMigrationRunner::Outcome AgentServiceMigrationRunner::retire(BackgroundAgent agent, const Job& job, Outcome outcome) {
  const auto proof = prove(agent);
  if (proof && std::holds_alternative<Committed>(*proof)) return finish(agent, job, std::move(outcome));
  // The registration does not run, so the legacy job has to be moved after all.
  if (proof && std::holds_alternative<RollBack>(*proof)) return replace(agent, job, std::move(outcome));
  outcome.isSettled = false;
  outcome.line = proof ? userMessage(ServiceAction::turnOn, displayName(agent), ServiceErrorKind::notAllowed)
                       : rowLine(LeaveReason::launchdUnknown);
  return outcome;
}

AgentServiceMigrationRunner::Outcome AgentServiceMigrationRunner::replace(BackgroundAgent agent, const Job& job, Outcome outcome) {
  const auto name = label(agent);
  // The facts may have aged.
  const auto ran = deps_.services.print(name);
  if (std::holds_alternative<ServiceManager::Failed>(ran)) {
    outcome.isSettled = false;
    outcome.line = rowLine(LeaveReason::launchdUnknown);
    return outcome;
  }
  try {
    mark(agent);
  } catch (const std::system_error& error) {
    say(name + ": not moved: " + error.what());
    outcome.isSettled = false;
    outcome.line = tr(legacyCleanupBlockedLine);
    return outcome;
  }
  std::vector<UnitFile> stood;
  const auto back = [&](const std::string& reason) { return rollBack(agent, job, std::move(outcome), stood, reason); };
  if (installUnregistersFirst(job.serviceStatus)) {
    // Beside a legacy file it is what to go back to only when it ran.
    if (const auto text = printed(ran); !job.legacyPlistPresent || (text && text->pid)) stood = deps_.services.registrationFiles(name);
    if (const auto failure = deps_.services.unregister(name)) {
      const auto after = deps_.services.status(name);
      if (!after || !unregisterFailureLeavesNothingRegistered(*after)) return back(failure->text);
    }
  }
  if (job.legacyPlistPresent && *job.loaded) {
    // What was loaded may have been the registration, which has gone.
    const auto now = deps_.services.print(name);
    if (const auto* failed = std::get_if<ServiceManager::Failed>(&now)) return back(failed->text);
    if (std::holds_alternative<ServiceManager::Printed>(now))
      if (const auto failure = deps_.services.bootout(name)) return back(failure->text);
  }
  if (const auto failure = deps_.services.registerService(name)) {
    outcome.line = userMessage(ServiceAction::turnOn, displayName(agent), errorKind(failure->domain, failure->code));
    return back(failure->text);
  }
  return match(
      prove(agent).value_or(RollBack{"its registration can't be told"}),
      [&](const RollBack& failed) { return back(failed.reason); },
      [&](const Committed&) { return finish(agent, job, std::move(outcome)); },
      // The legacy file stays until the registration has run; the marker too, so that the next run looks again.
      [&](const AwaitingApproval&) {
        outcome.isSettled = false;
        outcome.line = userMessage(ServiceAction::turnOn, displayName(agent), ServiceErrorKind::notAllowed);
        return outcome;
      });
}

std::optional<Verdict> AgentServiceMigrationRunner::prove(BackgroundAgent agent) const {
  std::optional<Verdict> result;
  for (int look = 0; look < deps_.looks; ++look) {
    // A program that fails at once still has its process in the first moment.
    deps_.clock.wait(deps_.settleSec, {});
    const auto status = deps_.services.status(label(agent));
    const auto print = deps_.services.print(label(agent));
    if (!status || std::holds_alternative<ServiceManager::Failed>(print)) {
      result.reset();
      continue;
    }
    Observation observation;
    if (const auto text = printed(print))
      observation = {.loaded = true,
                     .programInThisBundle = text->program && fs::path(*text->program).parent_path() == deps_.programFolder,
                     .hasPid = text->pid.has_value(),
                     .lastExitCode = text->lastExitCode};
    result = verdict(*status, observation, facts(agent).requiresPid ? RequiresPid::yes : RequiresPid::no);
    if (!std::holds_alternative<RollBack>(*result)) break;
  }
  return result;
}

AgentServiceMigrationRunner::Outcome AgentServiceMigrationRunner::rollBack(BackgroundAgent agent, const Job& job, Outcome outcome,
                                                                           const std::vector<UnitFile>& stood, const std::string& reason) {
  const auto name = label(agent);
  say(name + ": rolled back: " + reason);
  outcome.isSettled = false;
  if (outcome.line.empty()) outcome.line = tr(setUpButDidNotStartLine);
  const auto failure = deps_.services.unregister(name);
  if (failure) say(name + ": its registration could not be taken back: " + failure->text);
  // The legacy file was never touched. What did not come back is a later run's, told by the marker.
  if (!bringBack(job, stood) || (failure && stood.empty())) {
    outcome.line = tr(legacyCleanupBlockedLine);
    return outcome;
  }
  // A registration that stood before has gone, with nothing in its place.
  if (!job.legacyPlistPresent && stood.empty() && (job.interrupted || installUnregistersFirst(job.serviceStatus))) return outcome;
  try {
    deps_.removeFile(marker(agent));
  } catch (const std::system_error& error) {
    say(name + ": " + error.what());
  }
  return outcome;
}

bool AgentServiceMigrationRunner::bringBack(const Job& job, const std::vector<UnitFile>& stood) {
  std::optional<ServiceManager::Failure> failure;
  if (!stood.empty())
    failure = deps_.services.reinstate(job.label, stood);
  // A job that did not run is not started. One that a broken-off move ended did run before.
  else if (job.legacyPlistPresent && (*job.loaded || job.interrupted))
    failure = deps_.services.loadLegacy(job.label);
  if (failure)
    say(job.label + ": its old job could not be started: " + failure->text);
  else if (!stood.empty())
    say(job.label + ": it goes on as it was registered before");
  return !failure;
}

AgentServiceMigrationRunner::Outcome AgentServiceMigrationRunner::finish(BackgroundAgent agent, const Job& job, Outcome outcome) {
  try {
    if (job.legacyPlistPresent) deps_.removeFile(legacyFile(agent));
    if (isThere(marker(agent))) deps_.removeFile(marker(agent));
  } catch (const std::system_error& error) {
    // It runs from its registration; the file is retired by the next run.
    say(label(agent) + ": " + error.what());
    outcome.isSettled = false;
    outcome.line = tr(legacyCleanupBlockedLine);
  }
  return outcome;
}

}  // namespace halvo
