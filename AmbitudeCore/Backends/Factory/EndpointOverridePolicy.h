#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Which addresses a configuration may put in place of a compiled-in one. Pure.
namespace halvo::EndpointOverridePolicy {

/// The URL, trimmed, when it is https, or http to 127.0.0.1, ::1 or localhost; absent otherwise, also for one that carries a login, which
/// would end up in logs.
std::optional<std::string> validated(std::string_view value);
/// True when an accepted URL stays on this machine.
bool isLoopback(std::string_view url);
/// The line for a value of `key` that was not accepted.
std::string refusalReason(std::string_view value, std::string_view key);

/// An accepted URL as a full endpoint: one without a path gets `defaultPath`.
std::string endpoint(const std::string& url, std::string_view defaultPath);

}  // namespace halvo::EndpointOverridePolicy
