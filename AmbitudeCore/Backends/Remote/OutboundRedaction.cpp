#include "AmbitudeCore/Backends/Remote/OutboundRedaction.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Privacy/SecretRedaction.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

namespace halvo::OutboundRedaction {

std::string redactedText(std::string_view text) {
  using namespace SensitiveIdentifierRedaction;
  return SecretRedaction::redact(redact(text, Scope::outbound).first);
}

namespace {

/// Many detectors need the word in front of a number, and in an argument that word is its key.
std::string underKey(std::string_view key, std::string_view text) {
  for (const auto& label : {std::string(key), Text::replaceAll(std::string(key), "_", " ")}) {
    const auto line = fmt::format("{}: {}", label, text);
    auto safe = redactedText(line);
    if (safe != line) return safe.starts_with(label + ": ") ? safe.substr(label.size() + 2) : safe;
    if (key.find('_') == std::string_view::npos) break;
  }
  return std::string(text);
}

JSONValue redactedUnder(std::string_view key, const JSONValue& value) {
  return match(
      value.storage(), [](std::nullptr_t) { return JSONValue(); }, [](bool flag) { return JSONValue(flag); },
      [&](double number) {
        const auto digits = JSONValue(number).dump();
        auto safe = underKey(key, digits);
        return safe == digits ? JSONValue(number) : JSONValue(std::move(safe));
      },
      [&](const std::string& text) { return JSONValue(underKey(key, text)); },
      [&](const JSONValue::Array& list) {
        JSONValue::Array safe;
        for (const auto& one : list) safe.push_back(redactedUnder(key, one));
        return JSONValue(std::move(safe));
      },
      [&](const JSONObject& object) {
        std::vector<JSONObject::Member> safe;
        for (const auto& [name, member] : object) safe.emplace_back(redactedText(name), redactedUnder(name, member));
        return JSONValue(JSONObject::make(std::move(safe)));
      });
}

std::optional<std::string> cleanDetails(const std::string& json) {
  const auto details = JSONValue::parse(json);
  if (!details || !details->arrayValue()) return std::nullopt;
  JSONValue::Array clean;
  for (const auto& piece : *details->arrayValue())
    if (redacted(piece) == piece) clean.push_back(piece);
  if (clean.empty()) return std::nullopt;
  return clean.size() == details->arrayValue()->size() ? json : JSONValue(std::move(clean)).dump();
}

ChatMessage redactedMessage(ChatMessage message) {
  if (message.role == ChatRole::system) return message;
  message.content = redactedText(message.content);
  if (message.thinking) message.thinking = redactedText(*message.thinking);
  if (message.toolCalls)
    for (auto& call : *message.toolCalls) call.arguments = OutboundRedaction::redacted(call.arguments);
  if (message.reasoningDetailsJSON) message.reasoningDetailsJSON = cleanDetails(*message.reasoningDetailsJSON);
  return message;
}

}  // namespace

std::vector<ChatMessage> redacted(const std::vector<ChatMessage>& messages) {
  std::vector<ChatMessage> safe;
  safe.reserve(messages.size());
  for (const auto& message : messages) safe.push_back(redactedMessage(message));
  return safe;
}

JSONValue redacted(const JSONValue& value) { return redactedUnder("", value); }

}  // namespace halvo::OutboundRedaction
