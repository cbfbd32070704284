#include "tests/support/RemoteService.h"

#include <fmt/format.h>
#include <openssl/ssl.h>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "tests/support/OwnCertificate.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {
namespace {

RemoteService::Request parsed(const LoopbackServer::Request& came) {
  return {.method = came.head.substr(0, came.head.find(' ')), .path = came.path(), .head = came.head, .body = came.body};
}

std::shared_ptr<SSL_CTX> tlsContext(const OwnCertificate& own) {
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
  if (!context || SSL_CTX_use_certificate(context.get(), own.certificate.get()) != 1 ||
      SSL_CTX_use_PrivateKey(context.get(), own.key.get()) != 1)
    throw std::runtime_error("the remote service has no TLS");
  return context;
}

}  // namespace

struct RemoteService::State {
  TemporaryFolder folder;
  OwnCertificate own = OwnCertificate::make();
  std::optional<LoopbackServer> server;
};

std::optional<std::string> RemoteService::Request::header(std::string_view name) const {
  for (const auto line : Text::split(head, '\n')) {
    const auto colon = line.find(':');
    if (colon != std::string_view::npos && Text::equalsIgnoringCase(line.substr(0, colon), name))
      return std::string(Text::trim(line.substr(colon + 1)));
  }
  return std::nullopt;
}

void RemoteService::Answer::json(int status, std::string_view body, Headers headers) {
  auto answer = fmt::format("HTTP/1.1 {} X\r\nContent-Type: application/json\r\nContent-Length: {}\r\n", status, body.size());
  for (const auto& [name, value] : headers) answer += fmt::format("{}: {}\r\n", name, value);
  raw(answer + "\r\n" + std::string(body));
}

void RemoteService::Answer::beginStream() {
  raw("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n");
}

void RemoteService::Answer::chunk(std::string_view bytes) { raw(fmt::format("{:x}\r\n{}\r\n", bytes.size(), bytes)); }

void RemoteService::Answer::event(std::string_view payload) { chunk(fmt::format("data: {}\n\n", payload)); }

void RemoteService::Answer::comment(std::string_view text) { chunk(fmt::format(": {}\n\n", text)); }

void RemoteService::Answer::done() {
  event("[DONE]");
  raw("0\r\n\r\n");
}

RemoteService::RemoteService(Handler handler) : state_(std::make_unique<State>()) {
  state_->own.writePEM(certificateFile());
  state_->server.emplace(
      [answering = std::move(handler)](const auto& came, auto& connection) {
        Answer answer(connection);
        answering(parsed(came), answer);
      },
      std::nullopt, tlsContext(state_->own));
}

RemoteService::~RemoteService() = default;

std::string RemoteService::baseURL() const { return state_->server->baseURL(); }

std::string RemoteService::chatEndpoint() const { return baseURL() + "/api/v1/chat/completions"; }

std::filesystem::path RemoteService::certificateFile() const { return state_->folder.path() / "certificate.pem"; }

std::vector<RemoteService::Request> RemoteService::requests() const {
  std::vector<Request> all;
  for (const auto& came : state_->server->requests()) all.push_back(parsed(came));
  return all;
}

std::size_t RemoteService::connections() const { return state_->server->connections(); }

namespace {

JSONObject head(std::string_view provider) { return {{"id", "gen-1"}, {"model", "m-served"}, {"provider", provider}}; }

JSONObject usage() {
  return {{"prompt_tokens", 1000},
          {"completion_tokens", 20},
          {"prompt_tokens_details", JSONObject{{"cached_tokens", 800}}},
          {"completion_tokens_details", JSONObject{{"reasoning_tokens", 5}}},
          {"cost", 0.00025}};
}

std::string with(JSONObject object, JSONObject choice) {
  object.set("choices", JSONValue::Array{std::move(choice)});
  return JSONValue(std::move(object)).dump();
}

}  // namespace

std::string RemoteService::reply(std::string_view text, std::string_view provider) {
  auto object = head(provider);
  object.set("usage", usage());
  return with(std::move(object), {{"finish_reason", "stop"}, {"message", JSONObject{{"role", "assistant"}, {"content", text}}}});
}

std::string RemoteService::piece(std::string_view text, std::string_view provider) {
  return with(head(provider), {{"delta", JSONObject{{"content", text}}}});
}

std::vector<std::string> RemoteService::ending(std::string_view provider) {
  auto last = head(provider);
  last.set("usage", usage());
  last.set("choices", JSONValue::Array{});
  return {with(head(provider), {{"delta", JSONObject{}}, {"finish_reason", "stop"}}), JSONValue(std::move(last)).dump()};
}

}  // namespace halvo::test
