#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "CaptureShared/Foundation/Environment.h"
#include "tests/support/RemoteService.h"
#include "tools/PracticeModel/PracticeDialect.h"

namespace halvo {

/// A routing service of one's own on this machine, over TLS with a certificate of its own: the practice model's rules behind the remote
/// dialect, three providers in its catalogue, and an end that can be chosen.
class RemoteCoach {
 public:
  static constexpr const char* apiKey = "sk-or-v1-practice-key-that-opens-nothing-0001";

  RemoteCoach();

  /// What the programs need to run their coach on it, with the practice model as the fallback.
  Environment environment() const;
  /// The next streamed reply breaks off after its first words, and from then on nobody answers.
  void dieInTheNextReply() { mayDie_ = true; }
  bool isDead() const { return isDead_; }
  /// What came in.
  std::vector<test::RemoteService::Request> requests() const { return service_->requests(); }

 private:
  void answer(const test::RemoteService::Request& request, test::RemoteService::Answer& answer);

  PracticeDialect dialect_;
  std::atomic<bool> mayDie_ = false, isDead_ = false;
  std::unique_ptr<test::RemoteService> service_;
};

}  // namespace halvo
