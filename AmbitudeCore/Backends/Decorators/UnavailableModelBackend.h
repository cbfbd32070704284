#pragma once

#include <exception>

#include "AmbitudeCore/Backends/ModelBackend.h"

namespace halvo {

/// Stands in where nothing can serve: every call throws its error at once.
class UnavailableModelBackend : public ModelBackend {
 public:
  explicit UnavailableModelBackend(std::exception_ptr error) : error_(std::move(error)) {}

  ChatResponse chat(const std::vector<ChatMessage>&, const std::vector<ToolSpec>&, const ChatOptions&, const std::stop_token&) override {
    std::rethrow_exception(error_);
  }

 private:
  std::exception_ptr error_;
};

}  // namespace halvo
