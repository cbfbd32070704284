#pragma once

#include <optional>
#include <string>

/// How long recordings are kept. Each command answers the exit status and prints its own words.
namespace halvo::RetentionCommands {

/// Every recorded hour with its size, what would become of it, and why. Deletes nothing.
int show();
/// The same, then deletes what was shown, once that is confirmed or `isSure`.
int apply(bool isSure);
/// `policy`: a number of days or "off"; `onRestart`: "on" or "off". What is absent stays as it is.
int set(const std::optional<std::string>& policy, const std::optional<std::string>& onRestart);

}  // namespace halvo::RetentionCommands
