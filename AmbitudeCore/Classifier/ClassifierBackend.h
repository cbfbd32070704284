#pragma once

#include <stop_token>
#include <string>
#include <string_view>

#include "AmbitudeCore/Classifier/ClassifierState.h"
#include "CaptureShared/Net/HTTPTransport.h"

/// The one question of a judgment.
namespace halvo::ClassifierBackend {

struct Config {
  std::string endpoint = {};  ///< the full chat endpoint
  std::string model = {};
  int numPredict = 300;       ///< tokens of the answer: a state, a number and one sentence
  double timeout = 60;        ///< seconds
};

/// Asks the local model once. Throws `ModelBackendError` (also for a reply that is not JSON, an unknown state, or a confidence that is not
/// a number; the reply's words in it are redacted) and `Cancelled`. The confidence is brought into 0…1.
ClassifierJudgment judge(std::string_view system, std::string_view user, const Config& config, HTTPTransport& transport,
                         const std::stop_token& stop);

}  // namespace halvo::ClassifierBackend
