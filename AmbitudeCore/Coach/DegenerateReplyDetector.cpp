#include "AmbitudeCore/Coach/DegenerateReplyDetector.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "AmbitudeCore/Coach/CoachSanityChecks.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

const DegenerateReplyCentroid& DegenerateReplyCentroid::calibrated2026_09_03() {
  static const DegenerateReplyCentroid centroid{.vector = {},
                                                .dimensions = 1024,
                                                .embeddingModel = "qwen3-embedding:0.6b",
                                                .cleanMean = 0.3670974890380541,
                                                .cleanStd = 0.08745176857654222,
                                                .sampleCount = 381,
                                                .chunkWords = 12,
                                                .chunkStride = 6,
                                                .calibratedAt = "2026-09-03, n=381 clean / 7 degenerate, real events.jsonl"};
  return centroid;
}

const DegenerateReplySensitivity DegenerateReplySensitivity::replay{2.0, "replay"};
const DegenerateReplySensitivity DegenerateReplySensitivity::display{3.0, "display"};

namespace DegenerateReplyDetector {

std::vector<std::string> chunks(std::string_view text, int wordsPerChunk, int stride) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < text.size();) {
    const auto begin = text.find_first_not_of(" \t\r\n", at);
    if (begin == std::string_view::npos) break;
    const auto end = std::min(text.find_first_of(" \t\r\n", begin), text.size());
    words.emplace_back(text.substr(begin, end - begin));
    at = end;
  }
  std::vector<std::string> result;
  const auto size = static_cast<std::size_t>(std::max(1, wordsPerChunk)), step = static_cast<std::size_t>(std::max(1, stride));
  for (std::size_t begin = 0; begin < words.size(); begin += step) {
    const auto end = std::min(words.size(), begin + size);
    result.push_back(
        Text::join({words.begin() + static_cast<std::ptrdiff_t>(begin), words.begin() + static_cast<std::ptrdiff_t>(end)}, " "));
    if (end == words.size()) break;
  }
  return result;
}

double cosineDistance(const std::vector<double>& a, const std::vector<double>& b) {
  double dot = 0, normA = 0, normB = 0;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    dot += a[i] * b[i];
    normA += a[i] * a[i];
    normB += b[i] * b[i];
  }
  if (normA == 0 || normB == 0) return 1.0;
  const double distance = 1 - dot / (std::sqrt(normA) * std::sqrt(normB));
  // Numbers too large to be multiplied have no direction either.
  return std::isfinite(distance) ? distance : 1.0;
}

Verdict evaluate(const Reply& reply, const DegenerateReplyCentroid& centroid, const TextEmbedding* embedding, const std::stop_token& stop) {
  if (reply.finishReason == "length") return {.isDegenerate = true, .signal = FinishReasonLength{}, .reason = "finish_reason=length"};
  if (const auto reason = CoachSanityChecks::degenerationReason(reply.text)) {
    const auto trimmed = Text::trim(reply.text);
    const auto characters = Text::count(trimmed);
    const Signal signal = characters > CoachSanityChecks::maxCoachReplyCharacters
                              ? Signal(Length{characters, CoachSanityChecks::maxCoachReplyCharacters})
                              : Signal(RepeatedRun{CoachSanityChecks::longestRun(trimmed), CoachSanityChecks::maxRepeatedCharacterRun});
    return {.isDegenerate = true, .signal = signal, .reason = reason};
  }
  if (!embedding || centroid.vector.empty()) return {};
  using Kind = EvaluationError::Kind;
  if (embedding->modelID != centroid.embeddingModel)
    throw EvaluationError(Kind::embeddingModelMismatch,
                          fmt::format("embedding model mismatch: expected {}, got {}", centroid.embeddingModel, embedding->modelID));
  const auto texts = chunks(reply.text, centroid.chunkWords, centroid.chunkStride);
  if (texts.empty()) return {};
  const auto vectors = embedding->embed(texts, stop);
  if (vectors.size() != texts.size())
    throw EvaluationError(Kind::embeddingCountMismatch,
                          fmt::format("embedding count mismatch: expected {}, got {}", texts.size(), vectors.size()));
  const double threshold = centroid.threshold(reply.sensitivity.k);
  Verdict verdict;
  double worst = -1;
  for (std::size_t i = 0; i < vectors.size(); ++i) {
    if (static_cast<int>(vectors[i].size()) != centroid.dimensions)
      throw EvaluationError(Kind::embeddingDimensionMismatch,
                            fmt::format("embedding dimension mismatch: expected {}, got {}", centroid.dimensions, vectors[i].size()));
    const double score = cosineDistance(vectors[i], centroid.vector);
    if (score > worst) {
      worst = score;
      verdict.worstChunkIndex = i;
    }
    if (score > threshold && !verdict.firstExceedingChunkIndex) verdict.firstExceedingChunkIndex = i;
  }
  verdict.worstChunkText = texts[*verdict.worstChunkIndex];
  if (verdict.firstExceedingChunkIndex) {
    verdict.isDegenerate = true;
    verdict.signal = EmbeddingCentroid{worst, threshold};
    verdict.reason = fmt::format("embedding_worst_chunk={:.4f} threshold={:.4f}", worst, threshold);
  }
  return verdict;
}

}  // namespace DegenerateReplyDetector

}  // namespace halvo
