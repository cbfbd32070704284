#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvo {

/// What a service of the same wire shape does differently. By default nothing.
struct OpenRouterWireHooks {
  std::string displayName = {};  ///< of the backend in answers; empty: the routing service's
  std::vector<std::pair<std::string, std::string>> extraHeaders = {};
  /// From status, the service's own error code if the body names one, and body: an error to throw in place of `httpError`, or null.
  std::function<std::exception_ptr(int status, const std::optional<std::string>& serviceCode, std::string_view body)> decodeServiceError =
      {};
  /// The name of the service's route header.
  std::string routeHeader = "X-Route";
  /// From the value of that header, if there is one, and the body: an error that sends this turn elsewhere, or null. A value it answers
  /// null for is told in the log and ignored.
  std::function<std::exception_ptr(const std::optional<std::string>& header, std::string_view body)> decodeRouteDirective = {};
  /// Whether a system message may be a name that the service fills in. For those who compose a conversation: messages are sent as given.
  bool allowsServerPromptPlaceholders = false;
};

}  // namespace halvo
