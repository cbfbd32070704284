#include "CaptureShared/Net/CurlTransport.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include <curl/curl.h>
#include <fmt/format.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/RequestCheck.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo {
namespace {

using Steady = std::chrono::steady_clock;

struct EasyCleanup {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiCleanup {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct ListCleanup {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

/// One exchange: the handles, and what their callbacks gather.
struct Exchange {
  std::unique_ptr<CURL, EasyCleanup> easy{curl_easy_init()};
  std::unique_ptr<curl_slist, ListCleanup> headers;
  const std::function<void(std::string_view)>* onBody = nullptr;  // absent: the body is gathered whatever the status
  const std::function<void(const HTTPResponse&)>* onHead = nullptr;  // called once, then forgotten
  HTTPResponse response;
  std::exception_ptr failure;
  Steady::time_point lastPiece = Steady::now();
  char curlWords[CURL_ERROR_SIZE] = {};

  void append(const std::string& line) {
    auto* longer = curl_slist_append(headers.get(), line.c_str());
    if (!longer) throw std::bad_alloc();
    headers.release();
    headers.reset(longer);
  }
};

std::size_t takeHeader(char* bytes, std::size_t size, std::size_t count, void* user) {
  auto& exchange = *static_cast<Exchange*>(user);
  try {
    exchange.lastPiece = Steady::now();
    const auto line = Text::trim({bytes, size * count});
    const auto colon = line.find(':');
    // A status line begins a new head: what an interim answer said is not part of the answer.
    if (line.starts_with("HTTP/"))
      exchange.response.headers.clear();
    else if (colon != std::string_view::npos)
      exchange.response.headers.emplace_back(std::string(line.substr(0, colon)), std::string(Text::trim(line.substr(colon + 1))));
  } catch (...) {
    exchange.failure = std::current_exception();
    return 0;
  }
  return size * count;
}

std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* user) {
  auto& exchange = *static_cast<Exchange*>(user);
  try {
    exchange.lastPiece = Steady::now();
    long status = 0;
    curl_easy_getinfo(exchange.easy.get(), CURLINFO_RESPONSE_CODE, &status);
    exchange.response.status = static_cast<int>(status);
    if (const auto* tell = std::exchange(exchange.onHead, nullptr); tell && exchange.response.isSuccess()) (*tell)(exchange.response);
    RequestCheck::deliver({bytes, size * count}, exchange.response.status, exchange.onBody, exchange.response.body);
  } catch (...) {
    exchange.failure = std::current_exception();
    return 0;
  }
  return size * count;
}

std::string textOf(CURLcode code, const char* curlWords) {
  const std::string detail = *curlWords ? curlWords : curl_easy_strerror(code);
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return TransportText::timedOut();
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_URL_MALFORMAT:
      return TransportText::couldNotConnect(detail);
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:  // what an answer without a status line is called
    case CURLE_BAD_CONTENT_ENCODING:
      return TransportText::badResponse(detail);
    default:  // the rest of a foreign library's list: in all of them the exchange broke off
      return TransportText::connectionLost(detail);
  }
}

using CertificateFile = std::optional<std::filesystem::path>;

void setUp(Exchange& exchange, const HTTPRequest& request, const URLParts& parts, const CertificateFile& certificateFile) {
  auto* easy = exchange.easy.get();
  const bool loopback = parts.isLoopback();
  curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, loopback ? "http,https" : "https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  if (loopback) {
    // A proxy in the environment would be handed everything meant for this machine alone.
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
  }
  curl_easy_setopt(easy, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  if (certificateFile) curl_easy_setopt(easy, CURLOPT_CAINFO, certificateFile->c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::max(request.timeoutSec, 0.001) * 1000));
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, exchange.curlWords);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, takeHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &exchange);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, takeBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &exchange);
  if (loopback) curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));

  if (request.method == "POST" || !request.body.empty()) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
    exchange.append("Expect:");  // no waiting for "100 Continue": a local server never sends it
  }
  curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  if (request.method == "HEAD") curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  for (const auto& [name, value] : request.headers) exchange.append(value.empty() ? name + ";" : fmt::format("{}: {}", name, value));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, exchange.headers.get());
}

HTTPResponse run(const HTTPRequest& request, const std::function<void(std::string_view)>* onBody, const CertificateFile& certificateFile,
                 const std::stop_token& stop) {
  throwIfStopped(stop);
  const auto parts = URLParts::parse(request.url);
  if (!parts || (parts->scheme != "http" && parts->scheme != "https"))
    throw TransportError(TransportText::couldNotConnect("not a http or https URL"));
  if (parts->scheme == "http" && !parts->isLoopback())
    throw TransportError(TransportText::couldNotConnect("plain http only to this computer"));
  RequestCheck::requireCleanHead(request);

  const std::unique_ptr<CURLM, MultiCleanup> multi(curl_multi_init());
  Exchange exchange;
  if (!multi || !exchange.easy) throw std::bad_alloc();
  exchange.onBody = onBody;
  if (onBody && request.onHead) exchange.onHead = &request.onHead;
  setUp(exchange, request, *parts, certificateFile);
  curl_multi_add_handle(multi.get(), exchange.easy.get());
  struct Removal {
    CURLM* multi;
    CURL* easy;
    ~Removal() { curl_multi_remove_handle(multi, easy); }
  } const removal{multi.get(), exchange.easy.get()};
  const std::stop_callback wake(stop, [&] { curl_multi_wakeup(multi.get()); });

  const auto patience = std::chrono::duration<double>(request.timeoutSec);
  const auto began = Steady::now();
  for (;;) {
    int running = 0;
    curl_multi_perform(multi.get(), &running);
    if (exchange.failure) std::rethrow_exception(exchange.failure);
    throwIfStopped(stop);
    int left = 0;
    while (const auto* message = curl_multi_info_read(multi.get(), &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      if (message->data.result != CURLE_OK) throw TransportError(textOf(message->data.result, exchange.curlWords));
      long status = 0;
      curl_easy_getinfo(exchange.easy.get(), CURLINFO_RESPONSE_CODE, &status);
      exchange.response.status = static_cast<int>(status);
      return std::move(exchange.response);
    }
    const auto quietSince = onBody ? exchange.lastPiece : began;
    const auto leftover = patience - (Steady::now() - quietSince);
    if (leftover.count() <= 0) throw TransportError(TransportText::timedOut());
    // A second at most: should the wake-up ever be lost, the stop is still seen.
    const auto waitMs = std::clamp<long>(std::chrono::duration_cast<std::chrono::milliseconds>(leftover).count() + 1, 1, 1000);
    curl_multi_poll(multi.get(), nullptr, 0, static_cast<int>(waitMs), nullptr);
  }
}

}  // namespace

CurlTransport::CurlTransport(std::optional<std::filesystem::path> certificateFile) : certificateFile_(std::move(certificateFile)) {
  // Once for the process, however many transports there are; the library is never torn down before the process ends.
  static const auto ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (ready != CURLE_OK) throw std::runtime_error(curl_easy_strerror(ready));
}

HTTPResponse CurlTransport::send(const HTTPRequest& request, const std::stop_token& stop) {
  return run(request, nullptr, certificateFile_, stop);
}

HTTPResponse CurlTransport::stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                                   const std::stop_token& stop) {
  return run(request, &onBody, certificateFile_, stop);
}

}  // namespace halvo
