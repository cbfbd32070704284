#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <type_traits>
#include <utility>

#include "CaptureShared/Foundation/Clock.h"

/// A blocking operation that is given up when its time is over.
namespace halvo::DeadlineBound {

/// Runs `operation(stop_token)` on a thread of its own. Absent when `seconds` pass first: the operation's token is then stopped, and the
/// thread is left to end by itself, so the operation must own all it touches. Throws what the operation threw, or `Cancelled` when `stop`
/// is requested first.
template <class Operation, class Value = std::invoke_result_t<Operation, std::stop_token>>
std::optional<Value> run(double seconds, const std::stop_token& stop, Operation operation) {
  struct Shared {
    std::mutex mutex;
    std::condition_variable_any changed;
    std::optional<Value> value;
    std::exception_ptr failure;
    bool isDone = false;
  };
  auto shared = std::make_shared<Shared>();
  std::jthread worker([shared, run = std::move(operation)](const std::stop_token& own) mutable {
    std::optional<Value> value;
    std::exception_ptr failure;
    try {
      value.emplace(run(own));
    } catch (...) {
      failure = std::current_exception();
    }
    const std::lock_guard hold(shared->mutex);
    shared->value = std::move(value);
    shared->failure = failure;
    shared->isDone = true;
    shared->changed.notify_all();
  });
  const auto giveUp = [&] {
    worker.request_stop();
    worker.detach();
  };
  std::unique_lock hold(shared->mutex);
  shared->changed.wait_for(hold, stop, std::chrono::duration<double>(seconds), [&] { return shared->isDone; });
  if (!shared->isDone) {
    hold.unlock();
    giveUp();
    throwIfStopped(stop);
    return std::nullopt;
  }
  hold.unlock();
  worker.join();
  if (shared->failure) std::rethrow_exception(shared->failure);
  return std::move(shared->value);
}

}  // namespace halvo::DeadlineBound
