#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// What each `halvo` command does, once its words are read. Each answers the exit status and prints its own words.
namespace halvo::Commands {

int declare(const std::string& task, const std::optional<std::string>& until, const std::optional<std::string>& why);
int takeBreak(const std::optional<std::string>& until);
int clear();
int status();
/// The last `count` lines; with `follow` it goes on until it is stopped.
int log(std::size_t count, bool follow);
/// With `waitSec` above 0 it waits that long for Lark's answer and prints it.
int say(const std::string& text, double waitSec);
int chat(bool withLog, bool withThinking);

}  // namespace halvo::Commands
