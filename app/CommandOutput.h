#pragma once

#include <cstdio>
#include <string>

/// How a command speaks: what it found on standard output, why it failed on standard error.
namespace halvo::CommandOutput {

inline void print(const std::string& line) { std::fputs((line + "\n").c_str(), stdout); }

/// The exit status of a command that failed, its reason told.
inline int fail(const std::string& why) {
  std::fputs((why + "\n").c_str(), stderr);
  return 1;
}

}  // namespace halvo::CommandOutput
