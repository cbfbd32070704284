#pragma once

/// What Lark remembers, shown and forgotten. Each answers the exit status and prints its own words.
namespace halvo::MemoryCommands {

/// Threads, facts and lessons, with where each came from.
int show();
/// Says what forgetting means, asks unless `isSure`, and records a wipe.
int forget(bool isSure);

}  // namespace halvo::MemoryCommands
