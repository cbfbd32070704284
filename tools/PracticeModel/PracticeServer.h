#pragma once

#include <filesystem>
#include <list>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "CaptureShared/Foundation/FileHandle.h"
#include "tools/PracticeModel/PracticeDialect.h"

namespace halvo {

/// The sockets under the dialect: a thread a connection, one request a connection, every answer framed as the inference server frames it.
class PracticeServer {
 public:
  /// A TCP port on 127.0.0.1 (0: any free one) or a Unix socket. Throws `std::system_error` when it cannot listen; a socket that another
  /// server still answers on, and anything at the path that is no socket, stays untouched.
  PracticeServer(PracticeDialect& dialect, int port);
  PracticeServer(PracticeDialect& dialect, const std::filesystem::path& socketPath);
  ~PracticeServer();

  /// The base URL that clients take.
  const std::string& url() const { return url_; }

  /// Serves until the token stops; then ends what is being answered at once.
  void run(const std::stop_token& stop);

 private:
  struct Visitor {
    std::atomic<bool> done{false};
    std::jthread thread;
  };

  void serve(const FileHandle& client);
  void send(const FileHandle& client, const PracticeDialect::Answer& answer);
  bool pause(const FileHandle& client, double seconds);
  bool waitReadable(const FileHandle& socket);

  PracticeDialect& dialect_;
  FileHandle listener_;
  FileHandle end_;  // readable once the server is to end
  std::string url_;
  std::optional<std::filesystem::path> socketPath_;
  std::list<Visitor> visitors_;
};

}  // namespace halvo
