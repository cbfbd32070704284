#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// A process environment as a value, so that a decision never calls getenv.
using Environment = std::map<std::string, std::string, std::less<>>;

/// The present process's environment.
Environment processEnvironment();
/// The value of a key; absent when it is not set. Set to "" is not absent.
std::optional<std::string> value(const Environment& environment, std::string_view key);

}  // namespace halvo
