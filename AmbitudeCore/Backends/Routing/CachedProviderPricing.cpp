#include "AmbitudeCore/Backends/Routing/CachedProviderPricing.h"

#include <system_error>

#include "AmbitudeCore/Backends/Routing/OpenRouterEndpointsResponse.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {
namespace {

using OpenRouterProviderRouting::ProviderPricing;

/// Within what arithmetic on it can bear.
constexpr std::int64_t latestMs = std::int64_t{1} << 53;

JSONValue encoded(const ProviderPricing& entry) {
  JSONObject object{
      {"slug", entry.slug}, {"displayName", entry.displayName}, {"uncachedPromptPerToken", entry.uncachedPromptPerToken}};
  if (entry.cachedPromptPerToken) object.set("cachedPromptPerToken", *entry.cachedPromptPerToken);
  if (entry.completionPerToken) object.set("completionPerToken", *entry.completionPerToken);
  return object;
}

std::optional<ProviderPricing> decoded(const JSONValue& value) {
  const auto* object = value.objectValue();
  if (!object) return std::nullopt;
  const auto uncached = object->number("uncachedPromptPerToken");
  if (!uncached) return std::nullopt;
  ProviderPricing entry{.slug = object->string("slug").value_or(""),
                        .displayName = object->string("displayName").value_or(""),
                        .uncachedPromptPerToken = *uncached,
                        .cachedPromptPerToken = object->number("cachedPromptPerToken"),
                        .completionPerToken = object->number("completionPerToken")};
  return OpenRouterEndpointsResponse::isUsable(entry) ? std::optional(entry) : std::nullopt;
}

}  // namespace

std::filesystem::path CachedProviderPricing::defaultURL(const std::filesystem::path& dataRoot) {
  return dataRoot / "provider-pricing.json";
}

std::string CachedProviderPricing::encode() const {
  JSONValue::Array list;
  for (const auto& entry : entries) list.push_back(encoded(entry));
  return JSONValue(JSONObject{{"fetched_at_ms", fetchedAtMs}, {"model", model}, {"entries", std::move(list)}}).dumpPretty();
}

std::optional<CachedProviderPricing> CachedProviderPricing::decode(std::string_view text) {
  const auto parsed = JSONValue::parse(text);
  const auto* object = parsed ? parsed->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto fetchedAtMs = object->integer("fetched_at_ms");
  const auto model = object->string("model");
  const auto* list = object->find("entries");
  if (!fetchedAtMs || *fetchedAtMs < 0 || *fetchedAtMs > latestMs || !model || !list || !list->arrayValue()) return std::nullopt;
  CachedProviderPricing pricing{.fetchedAtMs = *fetchedAtMs, .model = *model};
  for (const auto& value : *list->arrayValue())
    if (auto entry = decoded(value)) pricing.entries.push_back(std::move(*entry));
  return pricing.entries.empty() ? std::nullopt : std::optional(std::move(pricing));
}

std::optional<CachedProviderPricing> CachedProviderPricing::read(const std::filesystem::path& file) {
  std::error_code none;
  if (!std::filesystem::is_regular_file(file, none) || std::filesystem::file_size(file, none) > largestFile) return std::nullopt;
  try {
    return decode(readFile(file));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

void CachedProviderPricing::write(const std::filesystem::path& file) const { writeFileAtomically(file, encode()); }

}  // namespace halvo
