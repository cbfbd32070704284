#pragma once

#include <functional>
#include <span>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Coach/CoachServiceStatus.h"
#include "CaptureShared/Foundation/Clock.h"

namespace halvo {

/// The coach's model, watched: a run of failures and its end become events, whoever made the calls.
class ServiceWatch : public ModelBackend {
 public:
  using Append = std::function<void(const EventLogEvent&)>;
  ServiceWatch(ModelBackend& backend, CoachServiceStatus::Config config, Clock clock, Append append)
      : backend_(backend), status_(config), clock_(std::move(clock)), append_(std::move(append)) {}

  /// See `CoachServiceStatus::resume`; only the first call counts.
  void resume(std::span<const EventLogEvent> events);

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override;
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) override;

 private:
  template <class F>
  ChatResponse watched(F&& call);

  ModelBackend& backend_;
  CoachServiceStatus status_;
  Clock clock_;
  Append append_;
  bool isResumed_ = false;
};

}  // namespace halvo
