#pragma once

#include <mutex>
#include <utility>

namespace halvo {

/// A value and the one lock that guards it.
template <class T>
class LockedValue {
 public:
  LockedValue() = default;
  explicit LockedValue(T value) : value_(std::move(value)) {}

  T get() const {
    const std::lock_guard hold(mutex_);
    return value_;
  }
  void set(T value) {
    const std::lock_guard hold(mutex_);
    value_ = std::move(value);
  }
  /// Runs `body` on the value under the lock and answers what it answers.
  template <class F>
  decltype(auto) with(F&& body) {
    const std::lock_guard hold(mutex_);
    return std::forward<F>(body)(value_);
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

}  // namespace halvo
