#include "agents/Signals/SignalsSampler.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {

SignalsSampler::SignalsSampler(Ports ports) : ports_(std::move(ports)) {}
SignalsSampler::~SignalsSampler() = default;

void SignalsSampler::say(const std::string& trouble) {
  if (trouble_ == trouble) return;
  trouble_ = trouble;
  if (ports_.log) ports_.log(trouble);
}

bool SignalsSampler::turn(std::int64_t nowMs) {
  try {
    const auto root = ports_.root();
    if (!root.database) {
      store_.reset();
      say(fmt::format("recording nothing: {}", root.whyNot));
      return false;
    }
    if (!store_ || store_->file() != *root.database) store_ = std::make_unique<SignalsStore>(*root.database, ports_.log);

    SignalsRow row{.desktop = ports_.probes.sample(), .nowPlaying = ports_.nowPlaying.fetch(), .declaredTask = ports_.declaredTask()};
    if (row.declaredTask) row.declaredTask = std::string(Text::trim(*row.declaredTask));
    if (row.declaredTask == "") row.declaredTask.reset();
    store_->write(nowMs, row);
    if (!trouble_.empty() && ports_.log) ports_.log("recording again");
    trouble_.clear();
    if (++sinceCheckpoint_ >= samplesPerCheckpoint) checkpoint();
    return true;
  } catch (const SQLiteError& error) {
    say(error.isFull() ? fmt::format("the disk is full or failing ({}) — samples are lost until it takes them again", error.what())
                       : fmt::format("signals.sqlite takes no sample ({}) — trying again each turn", error.what()));
  } catch (const std::exception& error) {
    say(fmt::format("no sample ({}) — trying again each turn", error.what()));
  }
  return false;
}

void SignalsSampler::checkpoint() {
  sinceCheckpoint_ = 0;
  try {
    store_->checkpoint();
  } catch (const SQLiteError& error) {
    if (ports_.log) ports_.log(fmt::format("signals.sqlite could not be checkpointed ({})", error.what()));
  }
}

void SignalsSampler::run(const std::stop_token& stop) {
  auto dueMs = ports_.clock.nowMs();
  while (!stop.stop_requested()) {
    const auto nowMs = ports_.clock.nowMs();
    turn(nowMs);
    dueMs += periodMs;
    const auto leftMs = dueMs - ports_.clock.nowMs();
    if (leftMs <= 0 || leftMs > periodMs) dueMs = ports_.clock.nowMs() + periodMs;
    ports_.clock.wait(static_cast<double>(dueMs - ports_.clock.nowMs()) / 1000, stop);
  }
  store_.reset();
}

}  // namespace halvo
