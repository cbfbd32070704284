#pragma once

#include <memory>
#include <string_view>

#include "CaptureShared/Foundation/Regex.h"

namespace halvo::CompiledRegexCache {

/// The compiled form of a pattern, compiled once a process. Thread-safe. Throws `std::invalid_argument` for one that does not compile.
std::shared_ptr<const Regex> get(std::string_view pattern, Regex::Flag flags = Regex::Flag::none);

}  // namespace halvo::CompiledRegexCache
