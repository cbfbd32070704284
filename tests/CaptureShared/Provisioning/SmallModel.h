#pragma once

#include <functional>
#include <map>
#include <random>
#include <string>

#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/LockedValue.h"
#include "CaptureShared/Provisioning/LocalModelInstaller.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

inline std::string noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (auto& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// A model of two small files, and a server that has them and knows ranges.
struct SmallModel {
  std::string weights = noise(300'000, 1), projector = noise(20'000, 2);
  /// Answers in the server's place; false leaves the answer to it. `from` is the range's first byte, 0 without a range.
  using Odd = std::function<bool(const std::string& path, std::size_t from, LoopbackServer::Connection&)>;
  LockedValue<Odd> odd = {};  // changed while an earlier answer may still be on its way
  LoopbackServer server{[this](const LoopbackServer::Request& request, LoopbackServer::Connection& connection) {
    const auto at = request.head.find("Range: bytes=");
    const auto from = at == std::string::npos ? 0 : std::stoul(request.head.substr(at + 13));
    if (const auto answer = odd.get(); answer && answer(request.path(), from, connection)) return;
    const auto& file = request.path().ends_with("weights") ? weights : projector;
    if (from >= file.size()) return connection.send("HTTP/1.1 416 No\r\nContent-Length: 0\r\n\r\n");
    connection.send(head(from, file.size()) + file.substr(from));
  }};

  static std::string head(std::size_t from, std::size_t size) {
    const auto length = "Content-Length: " + std::to_string(size - from) + "\r\n\r\n";
    if (from == 0) return "HTTP/1.1 200 OK\r\n" + length;
    return "HTTP/1.1 206 Partial\r\nContent-Range: bytes " + std::to_string(from) + "-" + std::to_string(size - 1) + "/" +
           std::to_string(size) + "\r\n" + length;
  }
  LocalModelStore::Manifest manifest(std::string base = {}) const {
    if (base.empty()) base = server.baseURL();
    const auto artifact = [&](const char* name, const std::string& bytes) {
      return LocalModelStore::Artifact{
          .fileName = name, .url = base + "/" + name, .sha256 = Digest::sha256Hex(bytes), .bytes = static_cast<std::int64_t>(bytes.size())};
    };
    return {.model = "small", .weights = artifact("weights", weights), .projector = artifact("projector", projector)};
  }
};

}  // namespace halvo::test
