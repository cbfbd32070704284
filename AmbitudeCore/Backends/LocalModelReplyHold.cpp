#include "AmbitudeCore/Backends/LocalModelReplyHold.h"

#include <fmt/format.h>

namespace halvo::LocalModelReplyHold {

Decision decide(const Moment& moment) {
  if (!moment.primaryIsLocal) return Decision::run;
  if (moment.modelFilesMissing) return moment.wasHolding || !moment.answersTypedMessage ? Decision::holdQuietly : Decision::holdWithNotice;
  if (moment.serverServing) return Decision::run;
  const auto graceMs = static_cast<std::int64_t>(serverStartGrace * 1000);
  // A server still silent after the grace will not be helped by waiting: the turn runs and says what is wrong.
  if (!moment.filesLandedAtMs || moment.asOfMs - *moment.filesLandedAtMs >= graceMs) return Decision::run;
  return Decision::holdQuietly;
}

bool clearsBackoff(bool wasHolding, Decision decision) { return wasHolding && decision == Decision::run; }

std::string noticeReason(std::string_view model) { return fmt::format("waiting for {} to finish downloading before answering", model); }

}  // namespace halvo::LocalModelReplyHold
