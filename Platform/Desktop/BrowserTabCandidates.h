#pragma once

#include <optional>
#include <string>
#include <vector>

/// Which browsers to ask for their tab, and in which order. Pure.
namespace halvo::BrowserTabCandidates {

/// The browsers of `readable` that are running, in the order of `readable`, but the frontmost one first. A frontmost application that is
/// not among them changes nothing.
std::vector<std::string> ordered(const std::vector<std::string>& readable, const std::vector<std::string>& running,
                                 const std::optional<std::string>& frontmost);

}  // namespace halvo::BrowserTabCandidates
