#pragma once

#include <cstdio>
#include <exception>
#include <string>
#include <utility>

#include "CaptureShared/DataRoot/DataPaths.h"

/// How a command speaks: what it found on standard output, why it failed on standard error.
namespace halvo::CommandOutput {

inline void print(const std::string& line) { std::fputs((line + "\n").c_str(), stdout); }

/// The exit status of a command that failed, its reason told.
inline int fail(const std::string& why) {
  std::fputs((why + "\n").c_str(), stderr);
  return 1;
}

/// Runs a command on the data root, if there is one; what it throws is told behind `ifItFails`.
template <class F>
int withDataRoot(F&& command, const std::string& ifItFails = {}) {
  if (!DataPaths::isDataRootAvailable()) return fail(DataPaths::dataRootUnavailableReason());
  try {
    return std::forward<F>(command)();
  } catch (const std::exception& error) {
    return fail(ifItFails + error.what());
  }
}

}  // namespace halvo::CommandOutput
