#pragma once

#include <string>
#include <string_view>

/// What the gate is told about its job. Each variant is one stable text: the model server caches it, and the session id is made of it.
namespace halvo::CoachGateRules {

extern const std::string_view text;
/// Added for a model whose reasoning costs this machine's own time.
extern const std::string_view lowEffortNote;

/// `text`, and with `lowEffort` a blank line and `lowEffortNote` behind it. Built once.
const std::string& prefix(bool lowEffort);

}  // namespace halvo::CoachGateRules
