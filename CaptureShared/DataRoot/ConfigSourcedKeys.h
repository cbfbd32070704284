#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

/// Which environment keys came from `config.json` and not from whoever started the process. Empty until the entry code fills it.
namespace halvo::ConfigSourcedKeys {

void fill(const std::vector<std::string>& applied);
std::set<std::string, std::less<>> all();

/// True when a key was set by the caller's own environment: present, not empty, and not copied from the file.
bool isPinnedFromOutside(std::string_view key, const Environment& environment, const std::set<std::string, std::less<>>& configSourcedEnvKeys);

}  // namespace halvo::ConfigSourcedKeys
