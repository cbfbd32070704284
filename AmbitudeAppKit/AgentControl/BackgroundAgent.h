#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/RawValue.h"

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
  std::string_view name;         ///< what a person calls it
  std::string_view shortName;    ///< what a person types
  std::string_view program;      ///< the file's name; its log's too
  std::string_view description;
  bool isScheduled;              ///< runs nightly and ends
  bool requiresPid;              ///< is only started when it has a process; the model server may wait for its files
};

inline constexpr std::array<BackgroundAgentFacts, 5> backgroundAgents{{
    {BackgroundAgent::captureSupervisor, "Capture", "capture", "Supervisor", "Halvo: records what happens on the screen", false, true},
    {BackgroundAgent::coachDriver, "Coach", "coach", "CoachDriver", "Halvo: decides whether Lark speaks", false, true},
    {BackgroundAgent::consolidate, "Nightly memory", "memory", "Consolidate", "Halvo: digests the day", true, false},
    {BackgroundAgent::classifier, "Classifier", "classifier", "ClassifierVerify", "Halvo: judges what is on the screen", false, true},
    {BackgroundAgent::localModel, "Local model", "model", "LocalModel", "Halvo: the local model's server", false, false},
}};

constexpr const BackgroundAgentFacts& facts(BackgroundAgent agent) { return backgroundAgents[static_cast<std::size_t>(agent)]; }
inline std::string label(BackgroundAgent agent) { return std::string(rawValue(agent)); }

}  // namespace halvo
