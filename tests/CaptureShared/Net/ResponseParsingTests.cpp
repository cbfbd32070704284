#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/EventStreamReader.h"
#include "CaptureShared/Net/HTTPResponseParser.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

namespace halvo {
namespace {

/// What came of some bytes read in pieces of one size, errors included.
struct Reading {
  int status = 0;
  std::string body = {};
  std::vector<std::string> events = {};
  std::string error = {};
  bool operator==(const Reading&) const = default;
};

Reading read(std::string_view bytes, std::size_t pieceSize) {
  Reading reading;
  HTTPResponseParser parser;
  EventStreamReader events;
  const auto onData = [&](std::string_view payload) { reading.events.emplace_back(payload); };
  try {
    for (std::size_t at = 0; at < bytes.size(); at += pieceSize)
      parser.feed(bytes.substr(at, pieceSize), [&](std::string_view piece) {
        reading.body += piece;
        events.feed(piece, onData);
      });
    parser.finish();
    events.finish(onData);
  } catch (const TransportError& error) {
    reading.error = error.what();
  }
  reading.status = parser.head().status;
  return reading;
}

TEST(ResponseParsing, recordingsReadAlikeWhereverTheyAreCut) {
  int streams = 0;
  for (const auto& file : std::filesystem::directory_iterator(std::filesystem::path(HALVO_TEST_DATA) / "wire")) {
    SCOPED_TRACE(file.path().filename());
    const auto bytes = readFile(file.path());
    const auto whole = read(bytes, bytes.size());
    EXPECT_EQ(whole.error, "");
    EXPECT_GE(whole.status, 200);
    EXPECT_FALSE(whole.body.empty());
    for (const std::size_t size : {1u, 2u, 3u, 7u, 64u, 501u}) EXPECT_EQ(read(bytes, size), whole) << size;
    if (bytes.find("text/event-stream") == std::string::npos) continue;
    ++streams;
    EXPECT_GE(whole.events.size(), 3u);
    // Cut short, a chunked body is never taken for a whole one.
    EXPECT_NE(read(std::string_view(bytes).substr(0, bytes.size() - 3), 64).error.find("-1005"), std::string::npos);
  }
  EXPECT_GE(streams, 8);
}

TEST(ResponseParsing, malformedResponsesSayWhatIsWrong) {
  const std::string chunked = "HTTP/1.1 200 OK\r\ntransfer-ENCODING: Chunked\r\n\r\n";
  const struct { const char* name; std::string bytes; const char* error; } cases[] = {
      {"garbage", "\x16\x03\x01 hello\r\n", "-1011"},
      {"no status", "HTTP/1.1 OK\r\n\r\n", "bad status line: HTTP/1.1 OK"},
      {"another protocol", "HTTP/2 200\r\n\r\n", "bad status line:"},
      {"header without colon", "HTTP/1.1 200 OK\r\nnonsense\r\n\r\n", "bad header line: nonsense"},
      {"blank in a header name", "HTTP/1.1 200 OK\r\nContent-Length : 5\r\n\r\nhello", "bad header line:"},
      {"endless header", "HTTP/1.1 200 OK\r\nX: " + std::string(20000, 'x'), "header line over 16384 bytes"},
      {"closed in the header", "HTTP/1.1 200 OK\r\nContent-", "connection closed mid-header"},
      {"length is no number", "HTTP/1.1 200 OK\r\nContent-Length: five\r\n\r\nhello", "bad Content-Length: five"},
      {"two lengths", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\nhello!", "bad Content-Length: 6"},
      {"short body", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nhello", "connection closed"},
      {"chunk size is no number", chunked + "5x\r\nhello\r\n", "bad chunk size: 5x"},
      {"negative chunk size", chunked + "-5\r\nhello\r\n", "bad chunk size: -5"},
      {"chunk size past 64 bits", chunked + "ffffffffffffffffff\r\nhello\r\n", "bad chunk size:"},
      {"no CRLF behind a chunk", chunked + "5\r\nhelloworld", "chunk not followed by CRLF"},
      {"last chunk missing", chunked + "5\r\nhello\r\n", "connection closed"},
      {"interim answer, chunk extension and trailer", "HTTP/1.1 100 Continue\r\n\r\n" + chunked + "5;a=b\r\nhello\r\n0\r\nX: y\r\n\r\n",
       ""},
      {"body to the end of the stream", "HTTP/1.1 200 OK\r\n\r\nhello", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto whole = read(c.bytes, c.bytes.size());
    if (*c.error)
      EXPECT_NE(whole.error.find(c.error), std::string::npos) << whole.error;
    else
      EXPECT_EQ(whole, (Reading{.status = 200, .body = "hello"}));
    for (const std::size_t size : {1u, 2u, 5u}) EXPECT_EQ(read(c.bytes, size), whole) << size;
  }
}

TEST(ResponseParsing, eventLines) {
  EventStreamReader reader;
  std::vector<std::string> seen;
  const auto onData = [&](std::string_view payload) { seen.emplace_back(payload); };
  reader.feed(":\r\n\r\nevent: x\ndata:one\r\n\r\ndata:   two  \nda", onData);
  reader.feed("ta: three", onData);
  EXPECT_EQ(seen, (std::vector<std::string>{"one", "two"}));
  reader.finish(onData);
  EXPECT_EQ(seen.back(), "three");
  reader.feed("data: [DONE]\ndata: four\n", onData);
  EXPECT_TRUE(reader.isDone());
  EXPECT_EQ(seen.size(), 3u);
}

TEST(URLParts, parse) {
  const struct { const char* text; std::optional<URLParts> want; } cases[] = {
      {"HTTP://127.0.0.1:80/a/b?q=1#f",
       URLParts{.scheme = "http", .host = "127.0.0.1", .port = "80", .path = "/a/b", .query = "q=1", .fragment = "f"}},
      {"http://[::1]:8", URLParts{.scheme = "http", .host = "::1", .port = "8"}},
      {"http://127.0.0.1:80@evil.example/",
       URLParts{.scheme = "http", .user = "127.0.0.1", .password = "80", .host = "evil.example", .path = "/"}},
      {"http://a@b@c", URLParts{.scheme = "http", .user = "a@b", .host = "c"}},
      {"http:/127.0.0.1", std::nullopt},
      {"127.0.0.1:80", std::nullopt},
      {"http://127.0.0.1\\@evil.example", std::nullopt},
      {"http://127.0.0.1/a b", std::nullopt},
      {"http://[::1", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(URLParts::parse(c.text), c.want) << c.text;
  for (const auto* port : {"0", "65536", "", "8a", "-1", "000080"}) EXPECT_EQ(URLParts{.port = port}.portNumber(), std::nullopt) << port;
  EXPECT_EQ(URLParts{.port = "65535"}.portNumber(), 65535);
}

TEST(URLParts, socketPathsRoundTrip) {
  for (const std::string path : {"/tmp/a.sock", "/home/ü %41/Library/Application Support/x.sock"}) {
    const auto url = UnixSocketHTTPProtocol::baseURL(path);
    EXPECT_EQ(UnixSocketHTTPProtocol::socketPath(joinedURL(url, "/v1/x")), path) << url;
  }
  for (const auto* url : {"http://%2Ftmp", "http+unix:///x", "http+unix://%2", "http+unix://%2Fa%00b"})
    EXPECT_EQ(UnixSocketHTTPProtocol::socketPath(url), std::nullopt) << url;
}

}  // namespace
}  // namespace halvo
