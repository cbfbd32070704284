#include "AmbitudeCore/Backends/ModelBackendError.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/CoachServiceError.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo {
namespace {

std::string description(ModelBackendError::Kind kind, int status, const std::string& text) {
  // A server may quote our own request back at us, key and all, and this text goes into logs.
  const auto safe = SecretRedaction::redact(text);
  switch (kind) {
    case ModelBackendError::Kind::invalidResponse:
      return "invalid response: " + safe;
    case ModelBackendError::Kind::httpError:
      return safe.empty() ? fmt::format("http {}", status) : fmt::format("http {}: {}", status, safe);
    case ModelBackendError::Kind::transportError:
      return "transport: " + safe;
  }
  return safe;
}

}  // namespace

ModelBackendError::ModelBackendError(Kind kind, int status, std::string text)
    : std::runtime_error(description(kind, status, text)), kind_(kind), status_(status), text_(std::move(text)) {}

bool ModelBackendError::isRetryable() const {
  switch (kind_) {
    case Kind::invalidResponse:
      return false;
    case Kind::httpError:
      return isRetryableStatus(status_);
    case Kind::transportError:
      return true;
  }
  return false;
}

bool ModelBackendError::isTimeout() const { return kind_ == Kind::transportError && TransportText::isTimeout(text_); }

bool ModelBackendError::isRetryableStatus(int status) {
  return status == 401 || status == 403 || status == 408 || status == 429 || (status >= 500 && status <= 599);
}

bool isRetryable(const std::exception& error) {
  if (const auto* backend = dynamic_cast<const ModelBackendError*>(&error)) return backend->isRetryable();
  const auto* service = dynamic_cast<const CoachServiceError*>(&error);
  return service && service->isRetryable();
}

std::string describeError(const std::exception& error) {
  if (dynamic_cast<const ModelBackendError*>(&error)) return error.what();
  return SecretRedaction::redact(error.what());
}

}  // namespace halvo
