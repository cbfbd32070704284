#include "tools/Scene/RemoteCoach.h"

#include <string_view>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

constexpr std::string_view catalogue = R"({"data":{"endpoints":[
  {"tag":"deepinfra/fp8","provider_name":"DeepInfra","pricing":{"prompt":"0.00000006","input_cache_read":"0.000000015","completion":"0.00000018"}},
  {"tag":"coreweave","provider_name":"CoreWeave","pricing":{"prompt":"0.00000009","completion":"0.0000002"}},
  {"tag":"fireworks","provider_name":"Fireworks","pricing":{"prompt":"0.0000001","input_cache_read":"0.00000002","completion":"0.0000003"}}]}})";

/// A payload as the routing service tells it: with who answered, and what it cost. Empty for what is no JSON object.
std::string withProvenance(std::string_view text) {
  auto payload = JSONValue::parse(text);
  auto* members = payload ? payload->mutableObject() : nullptr;
  if (!members) return {};
  members->set("provider", "DeepInfra");
  if (const auto* usage = payload->find("usage"); usage && usage->objectValue()) {
    auto block = *usage->objectValue();
    block.set("cost", 0.00002);
    members->set("usage", block);
  }
  return payload->dump();
}

bool hasWords(std::string_view text) {
  const auto payload = JSONValue::parse(text);
  const auto* content = payload ? payload->at({"choices", "0", "delta", "content"}) : nullptr;
  return content && content->stringValue() && !content->stringValue()->empty();
}

}  // namespace

RemoteCoach::RemoteCoach()
    : dialect_({}, {}, Clock::system().nowMs()),
      service_(std::make_unique<test::RemoteService>([this](const auto& request, auto& answer) { this->answer(request, answer); })) {}

Environment RemoteCoach::environment() const {
  return {{"AMBITCAP_MODEL_BACKEND", "openrouter"},
          {"OPENROUTER_API_KEY", apiKey},
          {"AMBITCAP_MODEL_ENDPOINT", service_->chatEndpoint()},
          {"AMBITCAP_FALLBACK_MODEL", "practice-model"},
          {"SSL_CERT_FILE", service_->certificateFile().string()}};
}

void RemoteCoach::answer(const test::RemoteService::Request& request, test::RemoteService::Answer& answer) {
  if (isDead_) return;  // the connection closes without a word
  if (request.path.ends_with("/endpoints")) return answer.json(200, catalogue);
  const auto said = dialect_.answer(
      {.method = request.method, .path = "/v1/chat/completions", .body = request.body, .nowMs = Clock::system().nowMs()});
  if (said.events.empty()) return answer.json(said.status, withProvenance(said.body));
  const bool dies = mayDie_;
  answer.beginStream();
  for (const auto& chunk : said.events)
    for (auto line : Text::split(chunk, '\n')) {
      if (!line.starts_with("data: {")) continue;
      line.remove_prefix(std::string_view("data: ").size());
      answer.event(withProvenance(line));
      if (!dies || !hasWords(line)) continue;
      isDead_ = true;
      return;
    }
  answer.done();
}

}  // namespace halvo
