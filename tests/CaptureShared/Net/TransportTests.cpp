#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Net/CurlTransport.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using test::LoopbackServer;
using test::TemporaryFolder;

using Steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string plain(std::string_view body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

/// Each test runs over TCP and over a Unix socket: a caller must not be able to tell them apart.
class Transport : public testing::TestWithParam<bool> {
 protected:
  void serve(LoopbackServer::Handler handler) {
    server_.reset();
    server_.emplace(std::move(handler), GetParam() ? std::optional(folder_.path() / "s") : std::nullopt);
  }
  HTTPRequest request(double timeoutSec = 10) const {
    return {.method = "POST",
            .url = server_->baseURL() + "/x?y=1",
            .headers = {{"Content-Type", "text/plain"}},
            .body = "ask",
            .timeoutSec = timeoutSec};
  }
  std::string errorOf(const HTTPRequest& asked) {
    try {
      transport_->stream(asked, [this](std::string_view piece) { streamed_ += piece; }, {});
    } catch (const TransportError& error) {
      return error.what();
    }
    return "";
  }

  TemporaryFolder folder_;
  std::optional<LoopbackServer> server_;
  std::unique_ptr<HTTPTransport> transport_ = HTTPTransportRouter::standard();
  std::string streamed_;
};
INSTANTIATE_TEST_SUITE_P(Kinds, Transport, testing::Values(false, true),
                         [](const auto& which) { return which.param ? "unixSocket" : "tcp"; });

TEST_P(Transport, sendsTheRequestAndAnswersWhatCame) {
  serve([](const auto&, auto& connection) { connection.sendInPieces(plain(std::string(300000, 'x')), 50000); });
  auto big = request();
  big.body.assign(400000, 'b');
  const auto response = transport_->send(big, {});
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.header("content-LENGTH"), "300000");
  EXPECT_EQ(response.body.size(), 300000u);
  const auto seen = server_->requests().at(0);
  EXPECT_EQ(seen.path(), "/x?y=1");
  EXPECT_EQ(seen.body, big.body);
  EXPECT_NE(seen.head.find("Content-Type: text/plain\r\n"), std::string::npos);
}

TEST_P(Transport, streamsPiecesAsTheyComeAndGathersErrors) {
  serve([](const auto& asked, auto& connection) {
    if (asked.body == "fail") return connection.send("HTTP/1.1 503 No\r\nContent-Length: 4\r\n\r\nbusy");
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n");
    connection.hang();
  });
  struct Enough {};
  // The first piece arrives although the answer never ends, and what the caller throws ends the transfer.
  EXPECT_THROW(transport_->stream(request(),
                                  [](std::string_view piece) {
                                    if (piece == "first") throw Enough();
                                  },
                                  {}),
               Enough);
  auto failing = request();
  failing.body = "fail";
  const auto response = transport_->stream(failing, [](std::string_view) { FAIL(); }, {});
  EXPECT_EQ(response.status, 503);
  EXPECT_EQ(response.body, "busy");
}

TEST_P(Transport, aStopEndsATransferWithin200Milliseconds) {
  for (const bool midBody : {false, true}) {
    serve([midBody](const auto&, auto& connection) {
      if (midBody) connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n");
      connection.hang();
    });
    std::stop_source source;
    Steady::time_point stopped;
    std::jthread stopper([&] {
      while (server_->requests().empty()) std::this_thread::yield();
      stopped = Steady::now();
      source.request_stop();
    });
    EXPECT_THROW(transport_->stream(
                     request(), [](std::string_view) {}, source.get_token()),
                 Cancelled);
    stopper.join();
    EXPECT_LT(Steady::now() - stopped, milliseconds(200));
    EXPECT_THROW(transport_->send(request(), source.get_token()), Cancelled) << "a stop from before the call";
  }
}

TEST_P(Transport, brokenServersAreToldApart) {
  const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n";
  const struct { const char* name; LoopbackServer::Handler handler; std::string want, streamed; } cases[] = {
      {"hangs before an answer", [](const auto&, auto& c) { c.hang(); }, TransportText::timedOut(), ""},
      {"hangs in its answer", [&](const auto&, auto& c) { c.send(head), c.hang(); }, TransportText::timedOut(), "hello"},
      {"garbage", [](const auto&, auto& c) { c.send("\x01\x02garbage\r\n\r\n"); }, TransportText::badResponse(), ""},
      {"closes without a word", [](const auto&, auto&) {}, TransportText::connectionLost(), ""},
      {"dies in its answer", [&](const auto&, auto& c) { c.send(head + "10\r\nhalf"); }, TransportText::connectionLost(), "hellohalf"},
      {"length promised too long", [](const auto&, auto& c) { c.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhello"); },
       TransportText::connectionLost(), "hello"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    streamed_.clear();
    serve(c.handler);
    const auto error = errorOf(request(0.3));
    EXPECT_TRUE(error.starts_with(c.want)) << error;
    EXPECT_EQ(streamed_, c.streamed);
    EXPECT_EQ(TransportText::isTimeout(error), c.want == TransportText::timedOut());
  }
  const auto gone = request();
  server_.reset();
  EXPECT_TRUE(errorOf(gone).starts_with(TransportText::couldNotConnect())) << errorOf(gone);
}

TEST_P(Transport, aStreamTimesOutBySilenceOnly) {
  serve([](const auto&, auto& connection) {
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    for (int i = 0; i < 6; ++i) {
      std::this_thread::sleep_for(milliseconds(100));
      connection.send("1\r\nx\r\n");
    }
    connection.send("0\r\n\r\n");
  });
  EXPECT_EQ(errorOf(request(0.4)), "");  // 0.6 s in all, never silent for 0.4
  EXPECT_EQ(streamed_, "xxxxxx");
  EXPECT_THROW(transport_->send(request(0.4), {}), TransportError);
}

TEST_P(Transport, redirectsAreAnswersAndProxiesAreNotAsked) {
  LoopbackServer proxy([](const auto&, auto& connection) { connection.send(plain("from the proxy")); });
  for (const auto* key : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) ::setenv(key, proxy.baseURL().c_str(), 1);
  serve([&](const auto&, auto& connection) {
    connection.send("HTTP/1.1 302 Found\r\nLocation: " + proxy.baseURL() + "/\r\nContent-Length: 0\r\n\r\n");
  });
  EXPECT_EQ(transport_->send(request(), {}).status, 302);
  for (const auto* key : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) ::unsetenv(key);
  EXPECT_EQ(proxy.bytesReceived(), 0u);
}

TEST_P(Transport, aHeaderCannotWriteAnother) {
  serve([](const auto&, auto& connection) { connection.send(plain("x")); });
  auto forged = request();
  forged.headers.emplace_back("X", "a\r\nAuthorization: b");
  EXPECT_THROW(transport_->send(forged, {}), std::invalid_argument);
  EXPECT_EQ(server_->bytesReceived(), 0u);
}

TEST(UnixSocket, aServerOfAnotherAccountGetsNoByte) {
  const TemporaryFolder folder;
  LoopbackServer server([](const auto&, auto& connection) { connection.send(plain("x")); }, folder.path() / "s");
  UnixSocketHTTPProtocol stranger(::geteuid() + 1);
  try {
    stranger.send({.url = server.baseURL() + "/"}, {});
    FAIL();
  } catch (const TransportError& error) {
    EXPECT_NE(std::string(error.what()).find(": served by uid " + std::to_string(::geteuid())), std::string::npos) << error.what();
  }
  EXPECT_EQ(server.bytesReceived(), 0u);
  EXPECT_EQ(UnixSocketHTTPProtocol().send({.url = server.baseURL() + "/"}, {}).body, "x");
}

TEST(UnixSocket, refusedAddresses) {
  const TemporaryFolder folder;
  const auto longest = folder.path() / std::string(102 - folder.path().native().size(), 's');
  LoopbackServer server([](const auto&, auto& connection) { connection.send(plain("x")); }, longest);
  UnixSocketHTTPProtocol transport;
  EXPECT_EQ(longest.native().size(), 103u);
  EXPECT_EQ(transport.send({.url = server.baseURL()}, {}).body, "x");
  const auto wordsFor = [](HTTPTransport& by, std::string url) -> std::string {
    try {
      by.send({.url = std::move(url)}, {});
    } catch (const TransportError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_NE(wordsFor(transport, server.baseURL() + "s").find("socket path is 104 bytes, over the 103-byte limit: "), std::string::npos);
  EXPECT_NE(wordsFor(transport, "http://127.0.0.1:1").find("not a http+unix URL"), std::string::npos);
  EXPECT_NE(wordsFor(transport, UnixSocketHTTPProtocol::baseURL(folder.path() / "none")).find("connect("), std::string::npos);
  CurlTransport curl;
  EXPECT_NE(wordsFor(curl, "http://192.0.2.1/").find("plain http only to this computer"), std::string::npos);
  EXPECT_NE(wordsFor(curl, "ftp://127.0.0.1/").find("not a http or https URL"), std::string::npos);
  EXPECT_NE(wordsFor(*HTTPTransportRouter::standard(), "file:///etc/passwd").find("no transport"), std::string::npos);
}

}  // namespace
}  // namespace halvo
