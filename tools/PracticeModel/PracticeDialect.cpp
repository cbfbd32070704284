#include "tools/PracticeModel/PracticeDialect.h"

#include <algorithm>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

constexpr std::int64_t imageTokens = 256;  // about what a picture costs a real model
constexpr double scriptDelayLimitSec = 600;
constexpr double slowEventPauseSec = 0.05;
constexpr std::int64_t defaultMaxTokens = 4096;

PracticeDialect::Answer plain(const JSONValue& body, int status = 200) { return {.status = status, .body = body.dump()}; }

PracticeDialect::Answer error(int status, std::string message, const char* type) {
  return plain(JSONObject{{"error", JSONObject{{"code", status}, {"message", std::move(message)}, {"type", type}}}}, status);
}

bool flag(const JSONValue& body, std::initializer_list<std::string_view> path) {
  const auto* found = body.at(path);
  return found && found->boolValue() == true;
}

std::string contentText(const JSONValue* content) {
  if (!content) return {};
  if (const auto* text = content->stringValue()) return *text;
  std::string joined;
  if (const auto* parts = content->arrayValue())
    for (const auto& part : *parts)
      if (const auto* text = part.find("text"); text && text->stringValue()) joined += *text->stringValue();
  return joined;
}

std::int64_t countImages(const JSONValue& body) {
  std::int64_t count = 0;
  const auto* messages = body.find("messages");
  for (const auto& message : *messages->arrayValue())
    if (const auto* parts = message.find("content"); parts && parts->arrayValue())
      count += std::count_if(parts->arrayValue()->begin(), parts->arrayValue()->end(),
                             [](const JSONValue& part) { return part.find("image_url") != nullptr; });
  return count;
}

/// Pieces as a model would stream them: each word with the blank in front of it.
std::vector<std::string> pieces(std::string_view text) {
  std::vector<std::string> all;
  for (const char c : text) {
    if (all.empty() || c == ' ' || c == '\n') all.emplace_back();
    all.back() += c;
  }
  return all;
}

/// The longest front part of `text` within `budget` tokens, cut between two of its pieces; takes what it used off the budget.
std::string withinBudget(std::string_view text, std::int64_t& budget) {
  std::string kept;
  for (const auto& piece : pieces(text)) {
    const auto cost = static_cast<std::int64_t>(PracticeDialect::tokens(piece, false).size());
    if (cost > budget) {
      budget = 0;
      break;
    }
    budget -= cost;
    kept += piece;
  }
  return kept;
}

/// One finished reply and the names it goes under.
struct Sheet {
  std::string id, model;
  std::int64_t created = 0;
  std::string text, thinking;
  std::vector<std::pair<std::string, std::string>> calls;  // name, argument text
  std::string finishReason;
  JSONValue usage;
};

JSONObject frame(const Sheet& sheet, const char* object) {
  return {
      {"id", sheet.id}, {"model", sheet.model}, {"created", sheet.created}, {"object", object}, {"system_fingerprint", "practice-model"}};
}

std::string callID(const Sheet& sheet, std::size_t index) { return fmt::format("practice-call-{}-{}", sheet.id, index); }

PracticeDialect::Answer plainReply(const Sheet& sheet) {
  JSONObject message{{"role", "assistant"}, {"content", sheet.text}};
  if (!sheet.thinking.empty()) message.set("reasoning_content", sheet.thinking);
  JSONValue::Array calls;
  for (std::size_t k = 0; k < sheet.calls.size(); ++k)
    calls.push_back(JSONObject{{"type", "function"},
                               {"id", callID(sheet, k)},
                               {"function", JSONObject{{"name", sheet.calls[k].first}, {"arguments", sheet.calls[k].second}}}});
  if (!calls.empty()) message.set("tool_calls", std::move(calls));
  auto body = frame(sheet, "chat.completion");
  body.set("choices", JSONValue::Array{JSONObject{{"finish_reason", sheet.finishReason}, {"index", 0}, {"message", std::move(message)}}});
  body.set("usage", sheet.usage);
  return plain(body);
}

std::string event(const JSONValue& payload) { return "data: " + payload.dump() + "\n\n"; }

std::string deltaEvent(const Sheet& sheet, JSONObject delta, const JSONValue& finishReason = {}) {
  auto payload = frame(sheet, "chat.completion.chunk");
  payload.set("choices", JSONValue::Array{JSONObject{{"finish_reason", finishReason}, {"index", 0}, {"delta", std::move(delta)}}});
  return event(payload);
}

PracticeDialect::Answer streamedReply(const Sheet& sheet, bool withUsage) {
  PracticeDialect::Answer answer;
  answer.events.push_back(deltaEvent(sheet, {{"role", "assistant"}, {"content", nullptr}}));
  for (auto& piece : pieces(sheet.thinking)) answer.events.push_back(deltaEvent(sheet, {{"reasoning_content", std::move(piece)}}));
  for (auto& piece : pieces(sheet.text)) answer.events.push_back(deltaEvent(sheet, {{"content", std::move(piece)}}));
  for (std::size_t k = 0; k < sheet.calls.size(); ++k) {
    const auto& [name, arguments] = sheet.calls[k];
    // The first piece carries id and name, the later ones only more of the arguments.
    const auto half = arguments.size() / 2;
    answer.events.push_back(
        deltaEvent(sheet, {{"tool_calls", JSONValue::Array{JSONObject{{"index", static_cast<std::int64_t>(k)},
                                                                      {"id", callID(sheet, k)},
                                                                      {"type", "function"},
                                                                      {"function", JSONObject{{"name", name}, {"arguments", ""}}}}}}}));
    // Cut where no character is cut in two.
    auto cut = half;
    while (cut < arguments.size() && (static_cast<unsigned char>(arguments[cut]) & 0xC0) == 0x80) ++cut;
    for (const auto& part : {arguments.substr(0, cut), arguments.substr(cut)})
      answer.events.push_back(deltaEvent(
          sheet, {{"tool_calls",
                   JSONValue::Array{JSONObject{{"index", static_cast<std::int64_t>(k)}, {"function", JSONObject{{"arguments", part}}}}}}}));
  }
  auto last = deltaEvent(sheet, {}, sheet.finishReason);
  if (withUsage) {
    auto payload = frame(sheet, "chat.completion.chunk");
    payload.set("choices", JSONValue::Array{});
    payload.set("usage", sheet.usage);
    last += event(payload);
  }
  answer.events.push_back(std::move(last));
  answer.events.push_back("data: [DONE]\n\n");
  return answer;
}

}  // namespace

PracticeDialect::PracticeDialect(Options options, std::string_view script, std::int64_t startedMs)
    : options_(options), script_(script), startedMs_(startedMs) {}

PracticeDialect::Answer PracticeDialect::answer(const Question& question) {
  if (options_.fault == PracticeFault::loading && question.nowMs - startedMs_ < static_cast<std::int64_t>(options_.faultSec * 1000))
    return error(503, "Loading model", "unavailable_error");
  const auto is = [&](std::string_view method, std::string_view path) { return question.method == method && question.path == path; };
  if (is("GET", "/health")) return plain(JSONObject{{"status", "ok"}});
  if (is("GET", "/props"))
    return plain(JSONObject{{"default_generation_settings", JSONObject{{"n_ctx", options_.contextTokens}}},
                            {"total_slots", 1},
                            {"model_alias", "practice-model"},
                            {"model_path", "practice-model"},
                            {"modalities", JSONObject{{"vision", true}}}});
  const bool chatPath = is("POST", "/v1/chat/completions");
  const bool templatePath = is("POST", "/apply-template");
  const bool tokenizePath = is("POST", "/tokenize");
  if (!chatPath && !templatePath && !tokenizePath) return error(404, "File Not Found", "not_found_error");

  const auto body = JSONValue::parse(question.body);
  if (!body || !body->objectValue()) return error(500, "parse error: the body is not a JSON object", "server_error");
  if (tokenizePath) {
    JSONValue::Array numbers;
    for (const int token : tokens(contentText(body->find("content")), flag(*body, {"add_special"}))) numbers.push_back(token);
    return plain(JSONObject{{"tokens", std::move(numbers)}});
  }
  if (const auto* messages = body->find("messages"); !messages || !messages->arrayValue())
    return error(400, "'messages' is required and must be an array", "invalid_request_error");
  if (templatePath) return plain(JSONObject{{"prompt", applyTemplate(*body)}});
  return chat(question);
}

PracticeDialect::Answer PracticeDialect::chat(const Question& question) {
  const auto body = JSONValue::parse(question.body).value();
  const bool streamed = flag(body, {"stream"});
  const auto promptTokens = static_cast<std::int64_t>(tokens(applyTemplate(body), true).size()) + countImages(body) * imageTokens;
  if (promptTokens >= options_.contextTokens) {
    const auto message = fmt::format("request ({} tokens) exceeds the available context size ({} tokens), try increasing it", promptTokens,
                                     options_.contextTokens);
    return plain(JSONObject{{"error", JSONObject{{"code", 400},
                                                 {"message", message},
                                                 {"type", "exceed_context_size_error"},
                                                 {"n_prompt_tokens", promptTokens},
                                                 {"n_ctx", options_.contextTokens}}}},
                 400);
  }
  if (options_.fault == PracticeFault::http500) return error(500, "the practice model was told to fail", "server_error");
  if (options_.fault == PracticeFault::badJSON) {
    if (!streamed) return {.body = "<html>practice</html>"};
    return {.events = {"data: <html>\n\n", "data: practice\n\n"}};
  }

  const auto request = PracticeReplies::Request::from(body);
  auto line = script_.next(PracticeReplies::prompt(request));
  auto reply = line ? line->reply : PracticeReplies::reply(request);
  if (options_.fault == PracticeFault::empty) reply = {};
  // Only the JSON boolean false turns thinking off.
  const auto* think = body.at({"chat_template_kwargs", "enable_thinking"});
  if (think && think->boolValue() == false) reply.thinking.clear();

  const auto* cap = body.find("max_tokens");
  auto budget = std::min<std::int64_t>(
      cap && cap->numberValue() && *cap->numberValue() >= 0 ? static_cast<std::int64_t>(*cap->numberValue()) : defaultMaxTokens,
      options_.contextTokens - promptTokens);
  if (options_.fault == PracticeFault::truncated) budget = std::min<std::int64_t>(budget, 4);
  const auto allowed = budget;
  Sheet sheet{.id = fmt::format("practice-{}", ++replies_),
              .model = contentText(body.find("model")),
              .created = question.nowMs / 1000,
              .text = {},
              .thinking = withinBudget(reply.thinking, budget),
              .calls = {},
              .finishReason = "stop",
              .usage = {}};
  bool cut = sheet.thinking != reply.thinking;
  if (!cut) sheet.text = withinBudget(reply.text, budget);
  cut = cut || sheet.text != reply.text;
  for (const auto& call : reply.toolCalls) {
    if (cut) break;
    const auto arguments = call.arguments.dump();
    sheet.calls.emplace_back(call.name, withinBudget(arguments, budget));
    cut = sheet.calls.back().second != arguments;
  }
  if (!sheet.calls.empty()) sheet.finishReason = "tool_calls";
  if (cut) sheet.finishReason = "length";
  if (line && line->finishReason) sheet.finishReason = *line->finishReason;
  const auto completion = allowed - budget;
  sheet.usage = JSONObject{{"prompt_tokens", promptTokens},
                           {"completion_tokens", completion},
                           {"total_tokens", promptTokens + completion},
                           {"prompt_tokens_details", JSONObject{{"cached_tokens", 0}}}};

  auto answer = streamed ? streamedReply(sheet, flag(body, {"stream_options", "include_usage"})) : plainReply(sheet);
  answer.fault = options_.fault;
  if (line) answer.pauseSec = std::clamp(static_cast<double>(line->delayMs) / 1000, 0.0, scriptDelayLimitSec);
  if (options_.fault == PracticeFault::slow) {
    answer.pauseSec = std::max(answer.pauseSec, options_.faultSec);
    answer.eventPauseSec = slowEventPauseSec;
  }
  return answer;
}

std::vector<int> PracticeDialect::tokens(std::string_view text, bool addSpecial) {
  std::vector<int> numbers;
  if (addSpecial) numbers.push_back(2);
  std::size_t run = 0;
  unsigned hash = 0;
  const auto end = [&] {
    if (run > 0) numbers.push_back(static_cast<int>(3 + hash % 250000));
    run = 0;
    hash = 0;
  };
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool letter = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte >= 0x80;
    if (!letter || run == 4) end();
    hash = hash * 31 + byte;
    ++run;
    // A blank belongs to the word behind it; any other mark stands by itself.
    if (!letter && byte != ' ') end();
  }
  end();
  return numbers;
}

std::string PracticeDialect::applyTemplate(const JSONValue& body) {
  std::string prompt;
  const auto* messages = body.find("messages");
  if (messages && messages->arrayValue())
    for (const auto& message : *messages->arrayValue()) {
      prompt += fmt::format("<|turn>{}\n{}", contentText(message.find("role")), contentText(message.find("content")));
      if (const auto* calls = message.find("tool_calls")) prompt += calls->dump();
      prompt += "<turn|>\n";
    }
  if (const auto* tools = body.find("tools")) prompt += tools->dump();
  return prompt + "<|turn>model\n";
}

}  // namespace halvo
