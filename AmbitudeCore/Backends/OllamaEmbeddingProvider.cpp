#include "AmbitudeCore/Backends/OllamaEmbeddingProvider.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo {
namespace {

std::string encoded(const OllamaEmbeddingProvider::Config& config, const std::vector<std::string>& texts) {
  const JSONValue body =
      JSONObject{{"model", config.model}, {"input", JSONValue::Array(texts.begin(), texts.end())}, {"keep_alive", config.keepAlive}};
  try {
    return body.dump();
  } catch (const JSONEncodingError& error) {
    throw ModelBackendError::invalidResponse(fmt::format("failed to encode request body: {}", error.what()));
  }
}

/// Absent when the body is anything but an object with a list of lists of numbers.
std::optional<std::vector<std::vector<double>>> vectors(const std::string& body) {
  const auto payload = JSONValue::parse(body);
  const auto* list = payload ? payload->find("embeddings") : nullptr;
  if (!list || !list->arrayValue()) return std::nullopt;
  std::vector<std::vector<double>> all;
  for (const auto& entry : *list->arrayValue()) {
    if (!entry.arrayValue()) return std::nullopt;
    auto& vector = all.emplace_back();
    for (const auto& number : *entry.arrayValue()) {
      const auto value = number.numberValue();
      if (!value) return std::nullopt;
      vector.push_back(*value);
    }
  }
  return all;
}

}  // namespace

std::vector<std::vector<double>> OllamaEmbeddingProvider::embed(const std::vector<std::string>& texts, const std::stop_token& stop) const {
  if (texts.empty()) return {};
  HTTPResponse response;
  try {
    response = transport_.send({.method = "POST",
                                .url = joinedURL(config_.endpoint, "api/embed"),
                                .headers = {{"Content-Type", "application/json"}},
                                .body = encoded(config_, texts),
                                .timeoutSec = 60},
                               stop);
  } catch (const TransportError& error) {
    throw ModelBackendError::transportError(error.what());
  }
  if (!response.isSuccess()) throw ModelBackendError::httpError(response.status, response.body);
  auto all = vectors(response.body);
  if (!all)
    throw ModelBackendError::invalidResponse(
        fmt::format("ollama /api/embed: unexpected response shape: {}", Text::prefix(Text::scrubbed(response.body), 500)));
  if (all->size() != texts.size())
    throw ModelBackendError::invalidResponse(fmt::format("ollama /api/embed: expected {} embeddings, got {}", texts.size(), all->size()));
  return std::move(*all);
}

}  // namespace halvo
