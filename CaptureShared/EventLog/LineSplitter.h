#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace halvo {

/// Cuts bytes that arrive in pieces into complete lines. What follows the last newline waits for its own.
class LineSplitter {
 public:
  /// Calls `onLine` with each complete line that is not empty, without its newline. The view lives until the call returns.
  template <class F>
  void feed(std::string_view bytes, F&& onLine) {
    for (auto end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
      auto line = bytes.substr(0, end);
      if (!pending_.empty()) {
        pending_ += line;
        line = pending_;
      }
      if (!line.empty()) onLine(line);
      pending_.clear();
      bytes.remove_prefix(end + 1);
    }
    pending_ += bytes;
  }
  /// Bytes of the line that is not complete yet.
  std::size_t pendingBytes() const { return pending_.size(); }
  std::string_view pending() const { return pending_; }

 private:
  std::string pending_;
};

}  // namespace halvo
