#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>

#include "AmbitudeCore/Backends/Routing/ProviderPricingTable.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// The service's catalogue could not be had. `what()` is fit for a log line.
class ProviderPricingError : public std::runtime_error {
 public:
  enum class Kind {
    httpStatus,      ///< any status but 200, a redirect among them
    emptyCatalogue,  ///< no endpoint with a price that can be read
    unreadable       ///< a body that is no catalogue
  };
  static ProviderPricingError httpStatus(int status);
  static ProviderPricingError emptyCatalogue();
  static ProviderPricingError unreadable();
  Kind kind() const { return kind_; }
  int status() const { return status_; }  ///< of `httpStatus`, else 0

 private:
  ProviderPricingError(Kind kind, int status, const std::string& text) : std::runtime_error(text), kind_(kind), status_(status) {}
  Kind kind_;
  int status_;
};

}  // namespace halvo

/// Where prices come from: the service itself, else its last answer, else what is compiled in.
namespace halvo::ProviderPricingResolver {

inline constexpr std::string_view defaultBaseURL = "https://openrouter.ai";
inline constexpr std::int64_t cacheHardExpirySec = 21'600;  ///< 6 hours
inline constexpr double fetchTimeoutSec = 20;               ///< for the whole fetch
inline constexpr std::size_t largestCatalogue = 4 << 20;    ///< bytes; a catalogue takes some ten thousand

/// One GET. Any status is an answer; throws when the request never completed, and `Cancelled`.
using Fetch = std::function<HTTPResponse(const HTTPRequest&)>;
/// The fetch over a transport, which outlives it. Never follows a redirect; a body that is too large or comes too slowly is a
/// `TransportError`.
Fetch fetchOver(HTTPTransport& transport, std::stop_token stop);

/// "https://host" of "https://host/api/v1/chat/completions", with what stands before that path if anything does; the origin of any
/// other URL.
std::string baseURLOf(std::string_view chatEndpoint);

struct Request {
  std::string baseURL = std::string(defaultBaseURL);
  std::string model = {};
  std::string apiKey = {};                             ///< empty: asked without one
  std::optional<std::filesystem::path> cacheURL = {};  ///< provider-pricing.json
  std::int64_t nowMs = 0;
  LogSink log = {};  ///< told when the cache can't be written
};

/// Throws `ProviderPricingError` and whatever `fetch` throws.
std::vector<OpenRouterProviderRouting::ProviderPricing> fetchLive(const Request& request, const Fetch& fetch);
/// Throws `Cancelled` only. The snapshot has entries for its own model alone.
ProviderPricingTable resolve(const Request& request, const Fetch& fetch);

}  // namespace halvo::ProviderPricingResolver
