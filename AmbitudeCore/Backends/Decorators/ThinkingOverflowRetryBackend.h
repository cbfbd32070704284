#pragma once

#include <memory>
#include <string>

#include "AmbitudeCore/Backends/Decorators/DecoratedCall.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// Another backend, asked once more without thinking when a reply with thinking was cut off: thought had used up the room of the answer.
/// The answer's usage is that of both calls.
class ThinkingOverflowRetryBackend : public DecoratingModelBackend {
 public:
  /// `name` is the backend's, for the log.
  ThinkingOverflowRetryBackend(std::shared_ptr<ModelBackend> wrapped, std::string name, LogSink log);

 protected:
  ChatResponse run(DecoratedCall& call) override;

 private:
  std::shared_ptr<ModelBackend> wrapped_;
  std::string name_;
  LogSink log_;
};

}  // namespace halvo
