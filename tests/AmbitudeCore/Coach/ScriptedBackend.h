#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"

namespace halvo::test {

/// A model in the test's own hands: it keeps what it was asked and answers by `answer`.
class ScriptedBackend : public ModelBackend {
 public:
  struct Call {
    std::vector<ChatMessage> messages = {};
    std::vector<ToolSpec> tools = {};
    ChatOptions options = {};
    bool isGate() const { return tools.empty(); }
  };
  std::function<ChatResponse(const Call&, const std::stop_token&)> answer;

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override {
    const Call call{messages, tools, options};
    {
      const std::lock_guard hold(mutex_);
      calls_.push_back(call);
    }
    return answer(call, stop);
  }
  std::vector<Call> calls() const {
    const std::lock_guard hold(mutex_);
    return calls_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Call> calls_;
};

}  // namespace halvo::test
