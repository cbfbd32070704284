#include "AmbitudeCore/Backends/Routing/OpenRouterEndpointsResponse.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace halvo {
namespace {

using OpenRouterProviderRouting::ProviderPricing;

bool isPrice(double number) {
  return std::isfinite(number) && number >= 0 && number <= OpenRouterEndpointsResponse::absurdPricePerToken;
}

/// A slug is sent, compared and logged.
bool isSlug(std::string_view text) {
  const auto isAllowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-_./:").find(c) != std::string_view::npos;
  };
  return !text.empty() && text.size() <= OpenRouterEndpointsResponse::longestName && std::all_of(text.begin(), text.end(), isAllowed);
}

/// True when the member is absent or null, or was read.
bool readOptionalPrice(const JSONObject& pricing, std::string_view key, std::optional<double>& into) {
  const auto* value = pricing.find(key);
  if (!value || value->isNull()) return true;
  into = OpenRouterEndpointsResponse::price(*value);
  return into.has_value();
}

std::optional<ProviderPricing> endpoint(const JSONValue& value) {
  const auto* object = value.objectValue();
  const auto* pricing = value.find("pricing");
  const auto* prices = pricing ? pricing->objectValue() : nullptr;
  if (!object || !prices) return std::nullopt;
  const auto* prompt = prices->find("prompt");
  const auto uncached = prompt ? OpenRouterEndpointsResponse::price(*prompt) : std::nullopt;
  if (!uncached) return std::nullopt;
  ProviderPricing entry{.slug = object->string("tag").value_or(""),
                        .displayName = object->string("provider_name").value_or(""),
                        .uncachedPromptPerToken = *uncached};
  if (!readOptionalPrice(*prices, "input_cache_read", entry.cachedPromptPerToken) ||
      !readOptionalPrice(*prices, "completion", entry.completionPerToken) || !OpenRouterEndpointsResponse::isUsable(entry))
    return std::nullopt;
  return entry;
}

}  // namespace

std::optional<OpenRouterEndpointsResponse> OpenRouterEndpointsResponse::parse(std::string_view body) {
  const auto reply = JSONValue::parse(body);
  const auto* list = reply ? reply->at({"data", "endpoints"}) : nullptr;
  if (!list || !list->arrayValue()) return std::nullopt;
  OpenRouterEndpointsResponse response;
  for (const auto& value : *list->arrayValue())
    if (auto entry = endpoint(value)) response.endpoints.push_back(std::move(*entry));
  return response;
}

std::optional<double> OpenRouterEndpointsResponse::price(const JSONValue& value) {
  double number = 0;
  if (const auto given = value.numberValue()) {
    number = *given;
  } else if (const auto* text = value.stringValue()) {
    const auto [end, failure] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (failure != std::errc() || end != text->data() + text->size()) return std::nullopt;
  } else {
    return std::nullopt;
  }
  return isPrice(number) ? std::optional(number) : std::nullopt;
}

bool OpenRouterEndpointsResponse::isUsable(const ProviderPricing& entry) {
  return isSlug(entry.slug) && entry.displayName.size() <= longestName && isPrice(entry.uncachedPromptPerToken) &&
         isPrice(entry.cachedPromptPerToken.value_or(0)) && isPrice(entry.completionPerToken.value_or(0));
}

}  // namespace halvo
