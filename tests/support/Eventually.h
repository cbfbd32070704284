#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace halvo::test {

/// Looks until `holds` does or `seconds` pass; whether it did. For what another process has to do first.
inline bool eventually(const std::function<bool()>& holds, double seconds = 10) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace halvo::test
