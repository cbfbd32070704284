#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "CaptureShared/Foundation/Translation.h"
#include "Platform/Services/ServiceManager.h"

/// Whether and how agents move from property lists in the user's folder to registered services. Pure: it reads nothing, and
/// `AgentServiceMigrationRunner` acts.
namespace halvo::AgentServiceMigration {

inline constexpr std::string_view installedAppPath = "/Applications/Halvo.app";
inline constexpr std::string_view supervisorLabel = "com.brindle.lark.supervisor.direct";
inline constexpr std::string_view coachLabel = "com.brindle.lark.coach.direct";
inline constexpr std::string_view developerTeamID = "B7RNDL3HV0";  ///< the maker's signing team
inline constexpr std::string_view setUpButDidNotStartLine = trMark("Set up, but it didn't start. Reinstall to try again.");
inline constexpr std::string_view legacyCleanupBlockedLine =
    trMark("Halvo is still clearing out its old background setup, so the new one isn't on yet. It tries again the next time Halvo opens.");

enum class Precondition { ok, notDeveloperID, notInstalledCopy, debugBuild };
struct Bundle {
  std::optional<std::string> teamIdentifier = {};
  std::string bundlePath = {};
  bool isOnReadOnlyVolume = false;
  bool isDebugBuild = false;
  std::string_view installedPath = installedAppPath;  ///< where the installed copy lies; elsewhere the folder of the package
};
/// A registered service runs from the bundle that registered it, so only the installed copy may register.
Precondition precondition(const Bundle& bundle);

struct Job {
  std::string label = {};
  bool legacyPlistPresent = false;
  std::optional<bool> loaded = {};
  std::optional<bool> disabled = {};
  bool interrupted = false;  ///< a move began and did not end
  ServiceStatus serviceStatus = ServiceStatus::notRegistered;
  std::optional<bool> runningBundleExists = {};  ///< whether the program that the job runs is still there
};

enum class LeaveReason { launchdUnknown, disableStateUnknown, disabledByLaunchd };
struct Leave {
  LeaveReason reason = LeaveReason::launchdUnknown;
  bool operator==(const Leave&) const = default;
};
enum class Step {
  nothing,
  move,       ///< end the legacy job, register, prove it, then delete the legacy file
  retire,     ///< a registration runs beside a legacy file: prove it, then delete the file
  registerIt,
  reregister  ///< a registration that does not run
};
using Action = std::variant<Leave, Step>;

/// For a job that the person wants. A job whose state is unknown or that is held off is left alone.
Action action(const Job& job);
/// One action a job, in their order; none but `nothing` for a copy that may not register.
std::vector<Action> plan(Precondition precondition, std::span<const Job> jobs);

struct Observation {
  bool loaded = false, programInThisBundle = false, hasPid = false;
  std::optional<std::int32_t> lastExitCode = {};
};
struct RollBack {
  std::string reason;
  bool operator==(const RollBack&) const = default;
};
struct Committed {
  bool operator==(const Committed&) const = default;
};
struct AwaitingApproval {
  bool operator==(const AwaitingApproval&) const = default;
};
using Verdict = std::variant<RollBack, Committed, AwaitingApproval>;
enum class RequiresPid { no, yes };
/// Whether a registration proved itself.
Verdict verdict(ServiceStatus status, const Observation& observation, RequiresPid requiresPid);

/// A failed unregister that left nothing behind is no failure.
bool unregisterFailureLeavesNothingRegistered(ServiceStatus statusAfter);
/// True when an install must take an old registration back first.
bool installUnregistersFirst(ServiceStatus status);

enum class ServiceErrorKind { notAllowed, damagedCopy, temporary };
enum class ServiceAction { turnOn, turnOff };
ServiceErrorKind errorKind(std::string_view domain, int code);
std::string userMessage(ServiceAction action, std::string_view agentName, ServiceErrorKind kind);
/// What stands beside an agent that was left alone.
std::string rowLine(LeaveReason reason);

struct Liveness {
  ServiceStatus status = ServiceStatus::notRegistered;
  bool loaded = false, hasPid = false;
};
using Statuses = std::span<const std::pair<BackgroundAgent, ServiceStatus>>;

/// What waits for the person's approval: one of the two that they miss first, or more than that.
enum class ApprovalBanner { hidden, captureOff, coachOff, partlyOff };
ApprovalBanner approvalBanner(Statuses statuses);
/// What is registered and does not run. Capture outranks the coach: without it there is nothing to coach on.
enum class StoppedBanner { hidden, captureStopped, coachStopped };
StoppedBanner stoppedBanner(const Liveness& supervisor, const Liveness& coach);

struct SomeOff {
  std::vector<BackgroundAgent> agents;
  bool operator==(const SomeOff&) const = default;
};
enum class OffCardState { hidden, allOff };
using OffCard = std::variant<SomeOff, OffCardState>;
/// Which agents have no registration that may run.
OffCard offCard(Statuses statuses);

}  // namespace halvo::AgentServiceMigration
