#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// A backend that is built anew when the order of its providers changes. The order is looked at on a thread of its own, at once and then
/// every hour, so that no call ever waits for it; a call that is under way ends on the backend it began with.
class RefreshedModelBackend : public ModelBackend {
 public:
  static constexpr double refreshSec = 3600;

  using Order = std::vector<std::string>;  ///< provider slugs, best first
  struct Settings {
    Order order = {};  ///< until the first refresh
    /// Makes the backend of an order; must not throw once it did not.
    std::function<std::shared_ptr<ModelBackend>(const Order&)> build = {};
    /// The order in force from now, given the one so far. Throws `Cancelled` alone. Empty: there is no order to be refreshed.
    std::function<Order(const Order&, const std::stop_token&)> refresh = {};
    Clock clock = Clock::system();
  };
  /// Throws what the first `build` throws.
  explicit RefreshedModelBackend(Settings settings);

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override {
    return current_.get()->chat(messages, tools, options, stop);
  }
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) override {
    return current_.get()->chatStream(messages, tools, options, onDelta, stop);
  }

 private:
  void keepFresh(const std::stop_token& stop);

  Settings settings_;
  LockedValue<std::shared_ptr<ModelBackend>> current_;
  std::jthread thread_;
};

}  // namespace halvo
