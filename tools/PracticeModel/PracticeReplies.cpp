#include "tools/PracticeModel/PracticeReplies.h"

#include <algorithm>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "tools/PracticeModel/PracticeDurations.h"

namespace halvo::PracticeReplies {
namespace {

std::string textOf(const JSONValue* content, bool& hasImage) {
  if (!content) return {};
  if (const auto* text = content->stringValue()) return *text;
  std::string joined;
  if (const auto* parts = content->arrayValue())
    for (const auto& part : *parts) {
      if (part.find("image_url")) hasImage = true;
      if (const auto* text = part.find("text"); text && text->stringValue()) joined += *text->stringValue();
    }
  return joined;
}

std::string stringAt(const JSONValue& object, std::string_view key) {
  const auto* found = object.find(key);
  return found && found->stringValue() ? *found->stringValue() : std::string();
}

/// A value of the type that a schema asks for.
JSONValue instance(const JSONValue& schema, int depth) {
  if (const auto* choices = schema.find("enum"); choices && choices->arrayValue() && !choices->arrayValue()->empty())
    return choices->arrayValue()->front();
  const auto type = stringAt(schema, "type");
  if (type == "string") return "practice";
  if (type == "integer" || type == "number") {
    const auto* least = schema.find("minimum");
    return least ? *least : JSONValue(0);
  }
  if (type == "boolean") return false;
  if (type == "array") return JSONValue::Array{};
  JSONObject object;
  const auto* properties = schema.find("properties");
  if (properties && properties->objectValue() && depth > 0)
    for (const auto& [name, member] : *properties->objectValue()) object.set(name, instance(member, depth - 1));
  return object;
}

std::string thinkingFor(Prompt prompt) {
  return fmt::format("The practice model does not think; it applied its rule for \"{}\".", rawValue(prompt));
}

}  // namespace

Request Request::from(const JSONValue& body) {
  Request request;
  if (const auto* messages = body.find("messages"); messages && messages->arrayValue())
    for (const auto& message : *messages->arrayValue()) {
      const auto role = stringAt(message, "role");
      auto text = textOf(message.find("content"), request.hasImage);
      if (role == "system" && request.system.empty()) request.system = text;
      if (role == "user" && request.firstUser.empty()) request.firstUser = text;
      request.lastRole = role;
      request.last = std::move(text);
    }
  if (const auto* format = body.find("response_format"); format && stringAt(*format, "type").starts_with("json")) {
    request.wantsJSON = true;
    if (const auto* schema = format->at({"json_schema", "schema"})) request.schema = *schema;
  }
  if (const auto* tools = body.find("tools"); tools && tools->arrayValue())
    for (const auto& tool : *tools->arrayValue())
      if (const auto* name = tool.at({"function", "name"}); name && name->stringValue()) request.toolNames.push_back(*name->stringValue());
  return request;
}

bool Request::offers(std::string_view tool) const { return std::find(toolNames.begin(), toolNames.end(), tool) != toolNames.end(); }

Prompt prompt(const Request& request) {
  const std::string_view system = request.system;
  if (request.hasImage) return Prompt::description;
  if (system.starts_with("You are an ambitude check.")) return Prompt::classifier;
  if (system.starts_with("You extract a time estimate")) return Prompt::estimate;
  if (system.starts_with("A classifier on this computer has just written one sentence")) return Prompt::reasonCheck;
  if (system.starts_with("You are the coaching voice in Lark")) return Prompt::coach;
  if (request.firstUser.starts_with("You decide whether Lark")) return Prompt::gate;
  if (request.firstUser.starts_with("What this memory is for:"))
    return request.firstUser.find("Candidate facts (index, text)") == std::string::npos ? Prompt::digest : Prompt::regeneration;
  return Prompt::other;
}

Reply reply(const Request& request) {
  const auto which = prompt(request);
  Reply answer{.thinking = thinkingFor(which)};
  switch (which) {
    case Prompt::classifier:
      answer.text = classify(request.last);
      break;
    case Prompt::description:
      answer.text = "A window of an application; the practice model does not look at pictures.";
      break;
    case Prompt::estimate:
      answer.text = estimate(request.last);
      break;
    case Prompt::reasonCheck:
      answer.text = reasonCheck(request.last);
      break;
    case Prompt::gate:
      answer.text = gate(request.firstUser);
      break;
    case Prompt::coach: {
      auto said = coach(request);
      answer.text = std::move(said.text);
      answer.toolCalls = std::move(said.toolCalls);
      break;
    }
    case Prompt::digest:
      answer.text = digest(request.firstUser);
      break;
    case Prompt::regeneration:
      answer.text = regeneration(request.firstUser);
      break;
    case Prompt::other:
      if (request.wantsJSON)
        answer.text = schemaInstance(request.schema.value_or(JSONObject{}));
      else
        answer.text = "This is the practice model: it answers by fixed rules.";
      break;
  }
  return answer;
}

std::string estimate(std::string_view message) {
  std::optional<PracticeDurations::Found> found;
  for (const auto line : Text::split(message, '\n')) {
    if (line.starts_with("Declared:") || found) continue;
    found = PracticeDurations::duration(line);
    if (!found)
      if (const auto declared = PracticeDurations::minuteOfDay(message.substr(std::min(message.find("Declared:"), message.size()))))
        found = PracticeDurations::until(line, *declared);
  }
  if (!found) return R"({"has_estimate": false, "estimated_minutes": null, "reason": "no time is named"})";
  return fmt::format(R"({{"has_estimate": true, "estimated_minutes": {}, "reason": {}}})", JSONValue(found->minutes).dump(),
                     JSONValue(std::string(Text::trim(found->phrase))).dump());
}

std::string reasonCheck(std::string_view message) {
  static const Regex telling(
      R"([$€£]\s*\d|\b\d{4,}\b|\b(?:balance|transaction|payment|salary|diagnos\w*|medicat\w*|prescri\w*|appointment|symptom\w*)\b)",
      Regex::Flag::caseless);
  // The declaration comes first and is never private; the sentence stands behind it.
  const auto sentence = message.substr(std::min(message.find("\n\n"), message.size()));
  return telling.matches(sentence) ? R"({"private": true})" : R"({"private": false})";
}

std::string schemaInstance(const JSONValue& schema) { return instance(schema, 8).dump(); }

}  // namespace halvo::PracticeReplies
