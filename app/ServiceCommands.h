#pragma once

#include <optional>
#include <string>
#include <vector>

/// The background agents: what each does, and how they come and go. Each command answers the exit status and prints its own words. An
/// absent agent means all of them.
namespace halvo::ServiceCommands {

using AgentName = std::optional<std::string>;

/// A row an agent.
int status();
/// Registers and starts them. A copy that is not the installed one refuses, unless it is told that it is meant.
int install(const AgentName& agent, bool fromHere);
/// The same for all of them after a set-up: those that ran already start again with what it chose.
int installAfterSetup(bool fromHere);
int restart(const AgentName& agent);
int stop(const AgentName& agent);
int remove(const AgentName& agent);
/// The files of an old installation, which a removal of all takes too.
std::vector<std::string> legacyFiles();
/// At login: tells the service manager which display this is, and starts what is installed and does not run. Desktops that reach
/// graphical-session.target have done so by themselves.
int begin();
/// The last lines of their logs.
int logs(const AgentName& agent);

}  // namespace halvo::ServiceCommands
