#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

/// A call failed at the provider it was pinned to, so another one may still answer it.
class ProviderAttributedFailure : public std::runtime_error {
 public:
  ProviderAttributedFailure(ModelBackendError underlying, std::string provider, std::string reason)
      : std::runtime_error(underlying.what()),
        underlying_(std::move(underlying)),
        provider_(std::move(provider)),
        reason_(std::move(reason)) {}
  const ModelBackendError& underlying() const { return underlying_; }
  const std::string& provider() const { return provider_; }  ///< its slug
  const std::string& reason() const { return reason_; }

 private:
  ModelBackendError underlying_;
  std::string provider_, reason_;
};

namespace ProviderAttribution {

/// Why an answer is its provider's failure, as logs say it; absent when it is not: a request that is wrong is so everywhere.
std::optional<std::string> reason(int status, std::string_view body);

/// The code of a payload's "error" object: a whole number, or a text of digits with an optional sign.
std::optional<int> errorCode(const JSONValue& payload);

}  // namespace ProviderAttribution
}  // namespace halvo
