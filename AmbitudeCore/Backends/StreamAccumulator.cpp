#include "AmbitudeCore/Backends/StreamAccumulator.h"

#include <iterator>

#include "AmbitudeCore/Backends/ChatCompletionsWire.h"

namespace halvo {
namespace {

std::string text(const JSONValue& object, std::string_view key) {
  const auto* found = object.find(key);
  return found && found->stringValue() ? *found->stringValue() : std::string();
}

void keep(std::optional<std::string>& slot, std::optional<std::string>&& value) {
  if (value) slot = std::move(value);
}

}  // namespace

std::optional<ModelStreamDelta> StreamAccumulator::feed(const JSONValue& payload) {
  if (auto usage = ChatCompletionsWire::usage(payload)) usage_ = std::move(usage);
  if (auto from = ChatCompletionsWire::provenance(payload)) {
    // The usage event at the end has no choice, and so no finish reason: what an earlier event named stays.
    keep(provenance_.provider, std::move(from->provider));
    keep(provenance_.generationID, std::move(from->generationID));
    keep(provenance_.servedModel, std::move(from->servedModel));
    keep(provenance_.finishReason, std::move(from->finishReason));
  }
  const auto* choice = payload.at({"choices", "0"});
  if (!choice) return std::nullopt;
  hasChoices_ = true;
  if (text(*choice, "finish_reason") == "length") truncated_ = true;
  auto logprobs = ChatCompletionsWire::logprobs(*choice);
  logprobs_.insert(logprobs_.end(), std::make_move_iterator(logprobs.begin()), std::make_move_iterator(logprobs.end()));

  const auto* delta = choice->find("delta");
  if (!delta) return std::nullopt;
  feedToolCalls(*delta);
  if (const auto* details = delta->find("reasoning_details"); details && details->arrayValue())
    reasoningDetails_.insert(reasoningDetails_.end(), details->arrayValue()->begin(), details->arrayValue()->end());

  ModelStreamDelta added{.text = text(*delta, "content"), .thinking = text(*delta, "reasoning")};
  if (added.thinking.empty()) added.thinking = text(*delta, "reasoning_content");
  text_ += added.text;
  thinking_ += added.thinking;
  if (added.text.empty() && added.thinking.empty()) return std::nullopt;
  return added;
}

void StreamAccumulator::feedToolCalls(const JSONValue& delta) {
  const auto* calls = delta.find("tool_calls");
  if (!calls || !calls->arrayValue()) return;
  for (const auto& call : *calls->arrayValue()) {
    const auto* members = call.objectValue();
    const auto* function = call.find("function");
    if (!members || !function) continue;
    auto& fragment = toolFragments_[members->integer("index").value_or(0)];
    if (auto name = text(*function, "name"); !name.empty()) fragment.name = std::move(name);
    fragment.arguments += text(*function, "arguments");
  }
}

ChatResponse StreamAccumulator::response() const {
  ChatResponse response{.text = text_, .thinking = thinking_, .truncated = truncated_, .usage = usage_, .logprobs = logprobs_};
  for (const auto& [index, fragment] : toolFragments_)
    if (!fragment.name.empty())
      response.toolCalls.push_back({.name = fragment.name, .arguments = ChatCompletionsWire::parsedArguments(fragment.arguments)});
  if (!provenance_.isEmpty()) response.provenance = provenance_;
  if (!reasoningDetails_.empty()) response.reasoningDetailsJSON = JSONValue(reasoningDetails_).dump();
  return response;
}

}  // namespace halvo
