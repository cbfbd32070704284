#pragma once

#include <optional>
#include <string>

/// The local models: which there are, which are here, and how they come and go. Each command answers the exit status and prints its own
/// words.
namespace halvo::ModelCommands {

/// Every model with its size, whether it fits this machine, and how much of it is here.
int list();
/// Without a name: the model that is configured, else the one this machine is recommended. Ended by a signal, it leaves what came so far.
int install(const std::optional<std::string>& name);
/// Reads both files and checks them. Without a name: the model that is configured.
int verify(const std::optional<std::string>& name);
int remove(const std::string& name);

/// How the local model does, for `halvo status`: a line, or two while judging is paused.
std::string healthLines();

}  // namespace halvo::ModelCommands
