#pragma once

#include <stdexcept>
#include <string>

namespace halvo {

/// Every failure of a model call. `what()` is the log description, redacted.
class ModelBackendError : public std::runtime_error {
 public:
  enum class Kind {
    invalidResponse,  ///< the reply could not be understood; not retryable
    httpError,        ///< a status that is no success; retryable by `isRetryableStatus`
    transportError    ///< the request never completed; always retryable
  };

  static ModelBackendError invalidResponse(std::string text) { return {Kind::invalidResponse, 0, std::move(text)}; }
  static ModelBackendError httpError(int status, std::string body) { return {Kind::httpError, status, std::move(body)}; }
  static ModelBackendError transportError(std::string text) { return {Kind::transportError, 0, std::move(text)}; }

  Kind kind() const { return kind_; }
  int status() const { return status_; }              ///< 0 unless `httpError`
  const std::string& text() const { return text_; }  ///< the body of an `httpError`, else the text; not redacted

  /// The same error in other words.
  ModelBackendError withText(std::string text) const { return {kind_, status_, std::move(text)}; }

  bool isRetryable() const;
  /// A transport error whose text says that the request timed out.
  bool isTimeout() const;

  static bool isRetryableStatus(int status);

  bool operator==(const ModelBackendError& other) const {
    return kind_ == other.kind_ && status_ == other.status_ && text_ == other.text_;
  }

 private:
  ModelBackendError(Kind kind, int status, std::string text);

  Kind kind_;
  int status_;
  std::string text_;
};

/// Whether a call that failed so may be made again: a `ModelBackendError` by its kind, a `CoachServiceError` by its flag, nothing else.
bool isRetryable(const std::exception& error);

/// An error as a log line: a `ModelBackendError` by its kind, anything else by its own words; secrets replaced by "[redacted]".
std::string describeError(const std::exception& error);

}  // namespace halvo
