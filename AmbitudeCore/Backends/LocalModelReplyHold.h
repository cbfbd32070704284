#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Whether a turn waits for a local model that is still on its way. Pure.
namespace halvo::LocalModelReplyHold {

enum class Decision {
  run,
  holdWithNotice,  ///< wait, and tell the person once that their message is kept
  holdQuietly
};

/// How long after its files landed a server may still be starting.
inline constexpr double serverStartGrace = 180;

struct Moment {
  bool primaryIsLocal = false;
  bool modelFilesMissing = false;
  bool serverServing = false;
  std::optional<std::int64_t> filesLandedAtMs = {};
  std::int64_t asOfMs = 0;
  bool answersTypedMessage = false;
  bool wasHolding = false;
};
Decision decide(const Moment& moment);

/// A hold that ends owes nobody a backoff.
bool clearsBackoff(bool wasHolding, Decision decision);

inline constexpr std::string_view noticeText =
    "The coach will answer when the model on this Mac finishes downloading. Your message is kept.";
/// "waiting for MODEL to finish downloading before answering".
std::string noticeReason(std::string_view model);

}  // namespace halvo::LocalModelReplyHold
