#pragma once

#include <sys/types.h>

namespace halvo::AgentUmask {

/// Sets the process's mask to 077, so that all it creates is private to the account, and answers the old one. The first call of every agent.
mode_t apply();

}  // namespace halvo::AgentUmask
