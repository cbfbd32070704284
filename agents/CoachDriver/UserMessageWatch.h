#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <thread>

namespace halvo {

/// While a call that nobody asked for is under way: stops its token as soon as the person says something, so that they are answered first.
class UserMessageWatch {
 public:
  /// Watches what is appended to the event log behind `fromOffset`.
  UserMessageWatch(const std::filesystem::path& events, std::int64_t fromOffset, const std::stop_token& outer);
  ~UserMessageWatch();
  UserMessageWatch(const UserMessageWatch&) = delete;
  UserMessageWatch& operator=(const UserMessageWatch&) = delete;

  /// Stops when the person spoke or the outer token stopped.
  std::stop_token token() const { return source_.get_token(); }

 private:
  std::stop_source source_;
  std::stop_callback<std::function<void()>> forward_;
  std::jthread thread_;
};

}  // namespace halvo
