#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace halvo {

/// What clean replies look like as embeddings.
struct DegenerateReplyCentroid {
  std::vector<double> vector = {};  ///< the mean embedding of clean replies; empty: the embedding check is skipped
  int dimensions = 0;
  std::string embeddingModel = {};
  double cleanMean = 0, cleanStd = 0;  ///< of the clean replies' distances
  int sampleCount = 0;
  int chunkWords = 12, chunkStride = 6;
  std::string calibratedAt = {};

  double threshold(double k) const { return cleanMean + k * cleanStd; }
  /// The calibration that is compiled in. Its 1,024 vector values come with a calibration on a person's own logs; until then it has none.
  static const DegenerateReplyCentroid& calibrated2026_09_03();
};

struct DegenerateReplySensitivity {
  double k = 0;
  std::string name = {};
  static const DegenerateReplySensitivity replay;   ///< k 2.0
  static const DegenerateReplySensitivity display;  ///< k 3.0
};

/// Turns texts into vectors.
struct TextEmbedding {
  std::string modelID = {};
  std::function<std::vector<std::vector<double>>(const std::vector<std::string>&, const std::stop_token&)> embed;
};

namespace DegenerateReplyDetector {

struct Length {
  std::size_t characters = 0, limit = 0;
  bool operator==(const Length&) const = default;
};
struct RepeatedRun {
  std::size_t runLength = 0, limit = 0;
  bool operator==(const RepeatedRun&) const = default;
};
struct EmbeddingCentroid {
  double worstChunkScore = 0, threshold = 0;
  bool operator==(const EmbeddingCentroid&) const = default;
};
struct Clean {
  bool operator==(const Clean&) const = default;
};
struct FinishReasonLength {
  bool operator==(const FinishReasonLength&) const = default;
};
using Signal = std::variant<Length, RepeatedRun, EmbeddingCentroid, Clean, FinishReasonLength>;

struct Verdict {
  bool isDegenerate = false;
  Signal signal = Clean{};
  std::optional<std::string> reason = {};
  std::optional<std::size_t> worstChunkIndex = {}, firstExceedingChunkIndex = {};
  std::optional<std::string> worstChunkText = {};
};

/// The check could not be made. Advisory: the cheap signals stay in force.
class EvaluationError : public std::runtime_error {
 public:
  enum class Kind { embeddingModelMismatch, embeddingDimensionMismatch, embeddingCountMismatch };
  EvaluationError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

struct Reply {
  std::string_view text = {};
  std::optional<std::string> finishReason = {};
  DegenerateReplySensitivity sensitivity = {};
};
/// The cheap signals first, then, with an embedding and a centroid that has a vector, the chunks' cosine distances. Throws
/// `EvaluationError` and what `embedding` throws.
Verdict evaluate(const Reply& reply, const DegenerateReplyCentroid& centroid, const TextEmbedding* embedding, const std::stop_token& stop);

/// `words` words at a time, every `stride` words.
std::vector<std::string> chunks(std::string_view text, int words, int stride);
/// 1 less the cosine; 1 when a norm is zero or past what a double holds.
double cosineDistance(const std::vector<double>& a, const std::vector<double>& b);

}  // namespace DegenerateReplyDetector

}  // namespace halvo
