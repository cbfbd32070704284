#include "AmbitudeAppKit/AgentControl/AgentServiceMigration.h"

#include <cerrno>

#include "CaptureShared/Foundation/Translation.h"

namespace halvo::AgentServiceMigration {

namespace {

std::string_view nameOf(ServiceStatus status) {
  switch (status) {
    case ServiceStatus::notRegistered: return "notRegistered";
    case ServiceStatus::enabled: return "enabled";
    case ServiceStatus::requiresApproval: return "requiresApproval";
    case ServiceStatus::notFound: return "notFound";
  }
  return {};
}

bool isRegistered(ServiceStatus status) { return status == ServiceStatus::enabled || status == ServiceStatus::requiresApproval; }

/// Loaded, and not known to run a program that has gone. Where a move was broken off, what is loaded may be either of the two.
bool isSound(const Job& job) { return *job.loaded && !job.interrupted && job.runningBundleExists != false; }

}  // namespace

Precondition precondition(const Bundle& bundle) {
  if (bundle.isDebugBuild) return Precondition::debugBuild;
  if (bundle.teamIdentifier != developerTeamID) return Precondition::notDeveloperID;
  if (bundle.isOnReadOnlyVolume) return Precondition::notInstalledCopy;
  std::string_view path = bundle.bundlePath;
  if (path.ends_with('/')) path.remove_suffix(1);
  return path == bundle.installedPath ? Precondition::ok : Precondition::notInstalledCopy;
}

Action action(const Job& job) {
  if (!job.loaded) return Leave{LeaveReason::launchdUnknown};
  if (!job.disabled) return Leave{LeaveReason::disableStateUnknown};
  if (*job.disabled) return Leave{LeaveReason::disabledByLaunchd};
  // Registered already, and the person's to allow: doing it over would only ask again.
  if (job.serviceStatus == ServiceStatus::requiresApproval) return Step::nothing;
  const bool isEnabled = job.serviceStatus == ServiceStatus::enabled;
  if (job.legacyPlistPresent) return isEnabled && isSound(job) ? Step::retire : Step::move;
  if (!isEnabled) return Step::registerIt;
  return isSound(job) ? Step::nothing : Step::reregister;
}

std::vector<Action> plan(Precondition precondition, std::span<const Job> jobs) {
  std::vector<Action> actions;
  for (const auto& job : jobs) actions.push_back(precondition == Precondition::ok ? action(job) : Step::nothing);
  return actions;
}

Verdict verdict(ServiceStatus status, const Observation& observation, RequiresPid requiresPid) {
  if (status == ServiceStatus::requiresApproval) return AwaitingApproval{};
  if (status != ServiceStatus::enabled) return RollBack{"macOS reports the registration as " + std::string(nameOf(status))};
  if (!observation.loaded) return RollBack{"launchd has no job after registering"};
  if (!observation.programInThisBundle) return RollBack{"launchd runs a program outside this bundle"};
  if (observation.hasPid) return Committed{};
  if (requiresPid == RequiresPid::no) return Committed{};
  const int code = observation.lastExitCode.value_or(0);
  if (code == 0) return RollBack{"the job has no process"};
  return RollBack{"the job exited " + std::to_string(code) + (code == 78 ? " (the launch-constraint kill, #387)" : "")};
}

bool unregisterFailureLeavesNothingRegistered(ServiceStatus statusAfter) { return !isRegistered(statusAfter); }
bool installUnregistersFirst(ServiceStatus status) { return isRegistered(status); }

ServiceErrorKind errorKind(std::string_view domain, int code) {
  // The numbers of the service framework's own errors.
  constexpr int operationNotPermitted = 1, invalidSignature = 3, authorizationFailure = 4, toolNotValid = 5, plistNotFound = 8,
                invalidPlist = 10, deniedByUser = 11;
  if (domain == "SMAppServiceErrorDomain") {
    if (code == operationNotPermitted || code == authorizationFailure || code == deniedByUser) return ServiceErrorKind::notAllowed;
    if (code == invalidSignature || code == toolNotValid || code == plistNotFound || code == invalidPlist)
      return ServiceErrorKind::damagedCopy;
  }
  if (domain == "NSPOSIXErrorDomain") {
    if (code == EPERM || code == EACCES) return ServiceErrorKind::notAllowed;
    if (code == ENOENT || code == ENOEXEC) return ServiceErrorKind::damagedCopy;
  }
  return ServiceErrorKind::temporary;
}

std::string userMessage(ServiceAction action, std::string_view agentName, ServiceErrorKind kind) {
  const auto onOrOff = action == ServiceAction::turnOn ? tr("on") : tr("off");
  switch (kind) {
    case ServiceErrorKind::damagedCopy:
      return tr("This copy of Halvo looks damaged, so {} can't be turned {}. Reinstall Halvo, then try again.", agentName, onOrOff);
    case ServiceErrorKind::notAllowed:
      return tr("Halvo isn't allowed to turn {} {}. Check that Halvo is on in Login Items, then try again.", agentName, onOrOff);
    case ServiceErrorKind::temporary:
      return tr("{} couldn't be turned {} just now. Try again, and restart your Mac if it keeps happening.", agentName, onOrOff);
  }
  return {};
}

std::string rowLine(LeaveReason reason) {
  switch (reason) {
    case LeaveReason::launchdUnknown:
    case LeaveReason::disableStateUnknown:
      return tr("Couldn't check how this is running, so the move will try again the next time Halvo opens.");
    case LeaveReason::disabledByLaunchd: return tr("macOS is holding this off, so it can't start until you allow it to run again.");
  }
  return {};
}

ApprovalBanner approvalBanner(Statuses statuses) {
  std::vector<BackgroundAgent> waiting;
  for (const auto& [agent, status] : statuses)
    if (status == ServiceStatus::requiresApproval) waiting.push_back(agent);
  if (waiting.empty()) return ApprovalBanner::hidden;
  if (waiting == std::vector{BackgroundAgent::captureSupervisor}) return ApprovalBanner::captureOff;
  if (waiting == std::vector{BackgroundAgent::coachDriver}) return ApprovalBanner::coachOff;
  return ApprovalBanner::partlyOff;
}

StoppedBanner stoppedBanner(const Liveness& supervisor, const Liveness& coach) {
  const auto isStopped = [](const Liveness& job) { return job.status == ServiceStatus::enabled && !(job.loaded && job.hasPid); };
  if (isStopped(supervisor)) return StoppedBanner::captureStopped;
  return isStopped(coach) ? StoppedBanner::coachStopped : StoppedBanner::hidden;
}

OffCard offCard(Statuses statuses) {
  SomeOff off;
  for (const auto& [agent, status] : statuses)
    if (status != ServiceStatus::enabled) off.agents.push_back(agent);
  if (off.agents.empty()) return OffCardState::hidden;
  if (off.agents.size() == statuses.size()) return OffCardState::allOff;
  return off;
}

}  // namespace halvo::AgentServiceMigration
