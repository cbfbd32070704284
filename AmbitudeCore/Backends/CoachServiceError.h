#pragma once

#include <stdexcept>
#include <string>

namespace halvo {

/// What the coach service (a remote service of its own with the routing service's wire shape) says instead of an answer.
class CoachServiceError : public std::runtime_error {
 public:
  enum class Kind {
    rateLimited,     ///< this call only: the next one may ask again
    routeDirective,  ///< this turn is to be answered elsewhere
    refused          ///< anything else
  };
  CoachServiceError(Kind kind, const std::string& text, bool isRetryable) : std::runtime_error(text), kind_(kind), retryable_(isRetryable) {}
  Kind kind() const { return kind_; }
  bool isRetryable() const { return retryable_; }

 private:
  Kind kind_;
  bool retryable_;
};

}  // namespace halvo
