#include "Platform/Desktop/BrowserTabCandidates.h"

#include <algorithm>

namespace halvo::BrowserTabCandidates {

std::vector<std::string> ordered(const std::vector<std::string>& readable, const std::vector<std::string>& running,
                                 const std::optional<std::string>& frontmost) {
  std::vector<std::string> result;
  for (const auto& browser : readable)
    if (std::find(running.begin(), running.end(), browser) != running.end()) result.push_back(browser);
  if (frontmost) std::stable_partition(result.begin(), result.end(), [&](const std::string& browser) { return browser == *frontmost; });
  return result;
}

}  // namespace halvo::BrowserTabCandidates
