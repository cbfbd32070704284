#include "tools/PracticeModel/PracticeScript.h"

#include <algorithm>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

std::optional<PracticeScript::Line> parsed(std::string_view text) {
  const auto json = JSONValue::parse(text);
  const auto* object = json ? json->objectValue() : nullptr;
  if (!object) return std::nullopt;
  PracticeScript::Line line{.reply = {.text = object->string("text").value_or(""), .thinking = object->string("thinking").value_or("")},
                            .finishReason = object->string("finish_reason"),
                            .delayMs = object->integer("delayMs").value_or(0)};
  if (const auto* calls = object->find("tool_calls")) {
    if (!calls->arrayValue()) return std::nullopt;
    for (const auto& call : *calls->arrayValue()) {
      auto decoded = ToolCall::decodeLogged(call);
      if (!decoded) return std::nullopt;
      line.reply.toolCalls.push_back(std::move(*decoded));
    }
  }
  if (const auto name = object->string("for")) {
    line.only = fromRawValue<PracticeReplies::Prompt>(*name);
    if (!line.only) return std::nullopt;
  }
  return line;
}

}  // namespace

PracticeScript::PracticeScript(std::string_view jsonLines) {
  int number = 0;
  for (const auto text : Text::split(jsonLines, '\n')) {
    ++number;
    if (Text::isBlank(text)) continue;
    auto line = parsed(text);
    if (!line) throw std::runtime_error(fmt::format("script line {} is not a reply", number));
    lines_.push_back(std::move(*line));
  }
}

std::optional<PracticeScript::Line> PracticeScript::next(PracticeReplies::Prompt prompt) {
  const std::lock_guard hold(mutex_);
  const auto found = std::find_if(lines_.begin(), lines_.end(), [&](const Line& line) { return !line.only || *line.only == prompt; });
  if (found == lines_.end()) return std::nullopt;
  auto line = std::move(*found);
  lines_.erase(found);
  return line;
}

}  // namespace halvo
