#pragma once

#include <stop_token>
#include <string>
#include <vector>

#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// Embeddings from a local server that speaks "/api/embed".
class OllamaEmbeddingProvider {
 public:
  struct Config {
    std::string endpoint = {};  ///< the server's base URL
    std::string model = {};
    std::string keepAlive = {};  ///< how long the server keeps the model loaded, as "6m"
  };

  /// `transport` outlives the provider.
  OllamaEmbeddingProvider(Config config, HTTPTransport& transport) : config_(std::move(config)), transport_(transport) {}

  const std::string& modelID() const { return config_.model; }

  /// One vector for each text, in order; no texts, no call. Within 60 seconds. Throws `ModelBackendError` or `Cancelled`.
  std::vector<std::vector<double>> embed(const std::vector<std::string>& texts, const std::stop_token& stop) const;

 private:
  Config config_;
  HTTPTransport& transport_;
};

}  // namespace halvo
