#include "AmbitudeCore/Backends/Routing/ProviderPricingResolver.h"

#include <chrono>
#include <cstdlib>
#include <utility>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/Routing/CachedProviderPricing.h"
#include "AmbitudeCore/Backends/Routing/OpenRouterEndpointsResponse.h"
#include "AmbitudeCore/Backends/Routing/ProviderPricingSnapshot.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo {

ProviderPricingError ProviderPricingError::httpStatus(int status) {
  return {Kind::httpStatus, status, fmt::format("HTTP {}", status)};
}
ProviderPricingError ProviderPricingError::emptyCatalogue() { return {Kind::emptyCatalogue, 0, "the catalogue has no endpoints"}; }
ProviderPricingError ProviderPricingError::unreadable() { return {Kind::unreadable, 0, "the reply is not a catalogue"}; }

}  // namespace halvo

namespace halvo::ProviderPricingResolver {
namespace {

std::string catalogueURL(const Request& request) {
  std::vector<std::string> segments;
  for (const auto segment : Text::split(request.model, '/')) segments.push_back(percentEncoded(segment));
  return joinedURL(request.baseURL, "/api/v1/models/" + Text::join(segments, "/") + "/endpoints");
}

/// One line without secrets, whatever a transport put into it.
std::string reason(const std::exception& error, const std::string& apiKey) {
  constexpr std::size_t longest = 300;
  auto text = std::string(error.what());
  if (!apiKey.empty()) text = Text::replaceAll(std::move(text), apiKey, SecretRedaction::token);
  return Text::capped(Text::newlinesToBlanks(SecretRedaction::redact(text)), longest);
}

void keep(const ProviderPricingTable& table, const Request& request) {
  if (!request.cacheURL) return;
  try {
    CachedProviderPricing{.fetchedAtMs = request.nowMs, .model = request.model, .entries = table.entries}.write(*request.cacheURL);
  } catch (const std::exception& error) {
    // The prices in hand are good; only the next offline start is poorer.
    if (request.log) request.log(fmt::format("provider pricing: the cache could not be written: {}", error.what()));
  }
}

/// The cache, or why there is none to use.
std::variant<CachedProviderPricing, std::string> cached(const Request& request) {
  if (!request.cacheURL) return "no cache path configured";
  auto cache = CachedProviderPricing::read(*request.cacheURL);
  if (!cache || cache->model != request.model) return "no readable cache";
  // A time ahead of the clock tells as little as one long past.
  const auto ageMs = std::abs(request.nowMs - cache->fetchedAtMs);
  if (ageMs > cacheHardExpirySec * 1000)
    return fmt::format("cache older than hard expiry ({})", ProviderPricingTable::ageText(ageMs));
  return std::move(*cache);
}

}  // namespace

Fetch fetchOver(HTTPTransport& transport, std::stop_token stop) {
  return [&transport, stop = std::move(stop)](const HTTPRequest& request) {
    using SteadyClock = std::chrono::steady_clock;
    const auto deadline = SteadyClock::now() + std::chrono::duration<double>(request.timeoutSec);
    std::string body;
    auto response = transport.stream(
        request,
        [&](std::string_view piece) {
          if (body.size() + piece.size() > largestCatalogue) throw TransportError(TransportText::badResponse("the body is too large"));
          if (SteadyClock::now() > deadline) throw TransportError(TransportText::timedOut("the body came too slowly"));
          body += piece;
        },
        stop);
    if (response.isSuccess()) response.body = std::move(body);
    return response;
  };
}

std::string baseURLOf(std::string_view chatEndpoint) {
  constexpr std::string_view chatPath = "/api/v1/chat/completions";
  if (chatEndpoint.ends_with(chatPath)) return std::string(chatEndpoint.substr(0, chatEndpoint.size() - chatPath.size()));
  const auto authority = chatEndpoint.find("://");
  if (authority == std::string_view::npos) return std::string(chatEndpoint);
  return std::string(chatEndpoint.substr(0, chatEndpoint.find_first_of("/?#", authority + 3)));
}

std::vector<OpenRouterProviderRouting::ProviderPricing> fetchLive(const Request& request, const Fetch& fetch) {
  HTTPRequest get{.url = catalogueURL(request), .headers = {{"Accept", "application/json"}}, .timeoutSec = fetchTimeoutSec};
  if (!request.apiKey.empty()) get.headers.emplace_back("Authorization", "Bearer " + request.apiKey);
  const auto response = fetch(get);
  if (response.status != 200) throw ProviderPricingError::httpStatus(response.status);
  auto catalogue = OpenRouterEndpointsResponse::parse(response.body);
  if (!catalogue) throw ProviderPricingError::unreadable();
  if (catalogue->endpoints.empty()) throw ProviderPricingError::emptyCatalogue();
  return std::move(catalogue->endpoints);
}

ProviderPricingTable resolve(const Request& request, const Fetch& fetch) {
  std::string liveFailure;
  try {
    ProviderPricingTable table{.entries = fetchLive(request, fetch), .provenance = ProviderPricingTable::Live{request.nowMs}};
    keep(table, request);
    return table;
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    liveFailure = reason(error, request.apiKey);
  }
  auto cache = cached(request);
  if (auto* pricing = std::get_if<CachedProviderPricing>(&cache))
    return {.entries = std::move(pricing->entries), .provenance = ProviderPricingTable::Cached{pricing->fetchedAtMs, liveFailure}};
  ProviderPricingTable floor{.provenance = ProviderPricingTable::CommittedSnapshot{liveFailure, std::get<std::string>(cache)}};
  if (request.model == ProviderPricingSnapshot::model) floor.entries = ProviderPricingSnapshot::entries();
  return floor;
}

}  // namespace halvo::ProviderPricingResolver
