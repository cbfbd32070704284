#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// A declaration was not read. `what()` is fit for a log line.
class EstimateExtractorError : public std::runtime_error {
 public:
  enum class Kind {
    httpError,       ///< the server answered with a status that is no success
    invalidResponse  ///< it did not answer, or not in the shape asked for
  };
  static EstimateExtractorError httpError(int status, const std::string& body);
  static EstimateExtractorError invalidResponse(const std::string& text);
  Kind kind() const { return kind_; }

 private:
  EstimateExtractorError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind_;
};

/// "for a couple hours" as minutes: one small question to the local model, once for each distinct declaration.
namespace EstimateExtractor {

extern const std::string_view systemPrompt;

inline constexpr double longestEstimateMinutes = 1440;  ///< one day: the prompt resolves clock times within the same day

struct Config {
  std::string endpoint = {};  ///< the full chat endpoint
  std::string model = {};
  int numPredict = 128;       ///< tokens of the answer
  double timeout = 30;        ///< seconds
};

struct Estimate {
  std::optional<double> minutes = {};  ///< absent: the text names no time
  std::string reason = {};             ///< the model's short phrase
  bool operator==(const Estimate&) const = default;
};

/// Asks and keeps the answer in `estimate_cache` of the signals database, also when it is "no estimate". `declaredText` is the whole task
/// file body: its "Declared:" line is what clock times are counted from. A store that can't be written is logged and costs another call
/// later. Throws `EstimateExtractorError`, and then nothing is kept, or `Cancelled`.
Estimate extract(std::string_view declaredText, const std::filesystem::path& signalsPath, const Config& config, HTTPTransport& transport,
                 std::int64_t nowMs, const LogSink& log, const std::stop_token& stop);

}  // namespace EstimateExtractor
}  // namespace halvo
