#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The names under which this system's own windows show up as the frontmost app. A judgment made while one of them is in front says nothing
/// about what the person is doing.
namespace halvo::OwnApplications {

/// Compared without case.
bool contains(std::string_view app);
/// An app that was not recorded is not one of ours.
inline bool contains(const std::optional<std::string>& app) { return app && contains(std::string_view(*app)); }

}  // namespace halvo::OwnApplications
