#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

/// The five background programs. A raw value is the job's label with the service manager.
enum class BackgroundAgent { captureSupervisor, coachDriver, consolidate, classifier, localModel };

template <>
struct RawValues<BackgroundAgent> {
  static constexpr std::array table{std::pair{BackgroundAgent::captureSupervisor, "com.brindle.lark.supervisor.direct"},
                                    std::pair{BackgroundAgent::coachDriver, "com.brindle.lark.coach.direct"},
                                    std::pair{BackgroundAgent::consolidate, "com.brindle.lark.consolidate.direct"},
                                    std::pair{BackgroundAgent::classifier, "com.brindle.lark.classify.direct"},
                                    std::pair{BackgroundAgent::localModel, "com.brindle.lark.llama.direct"}};
};

struct BackgroundAgentFacts {
  BackgroundAgent agent;
  std::string_view name;         ///< what a person calls it; `displayName` is what they see
  std::string_view shortName;    ///< what a person types
  std::string_view program;      ///< the file's name; its log's too
  std::string_view description;
  bool isScheduled;              ///< runs nightly and ends
  bool requiresPid;              ///< is only started when it has a process; the model server may wait for its files
};

inline constexpr std::array<BackgroundAgentFacts, 5> backgroundAgents{{
    {.agent = BackgroundAgent::captureSupervisor, .name = trMark("Capture"), .shortName = "capture", .program = "Supervisor",
     .description = "Halvo: records what happens on the screen", .isScheduled = false, .requiresPid = true},
    {.agent = BackgroundAgent::coachDriver, .name = trMark("Coach"), .shortName = "coach", .program = "CoachDriver",
     .description = "Halvo: decides whether Lark speaks", .isScheduled = false, .requiresPid = true},
    {.agent = BackgroundAgent::consolidate, .name = trMark("Nightly memory"), .shortName = "memory", .program = "Consolidate",
     .description = "Halvo: digests the day", .isScheduled = true, .requiresPid = false},
    {.agent = BackgroundAgent::classifier, .name = trMark("Classifier"), .shortName = "classifier", .program = "ClassifierVerify",
     .description = "Halvo: judges what is on the screen", .isScheduled = false, .requiresPid = true},
    {.agent = BackgroundAgent::localModel, .name = trMark("Local model"), .shortName = "model", .program = "LocalModel",
     .description = "Halvo: the local model's server", .isScheduled = false, .requiresPid = false},
}};

constexpr const BackgroundAgentFacts& facts(BackgroundAgent agent) { return backgroundAgents[static_cast<std::size_t>(agent)]; }
inline std::string displayName(BackgroundAgent agent) { return tr(facts(agent).name); }
inline std::string label(BackgroundAgent agent) { return std::string(rawValue(agent)); }

}  // namespace halvo
