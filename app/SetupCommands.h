#pragma once

/// The first and the last thing a person does with Halvo. Each command answers the exit status and prints its own words.
namespace halvo::SetupCommands {

/// Asks everything, then does it: ended before its last question, nothing has changed.
int setup(bool fromHere);
/// Shows what goes and what stays, asks, and takes the agents, the recordings, the settings and the logs away.
int uninstall(bool isSure, bool keepsData);

}  // namespace halvo::SetupCommands
