#include "AmbitudeCore/Classifier/ModelIntegrityCheck.h"

#include <fmt/format.h>

#include <system_error>

#include "AmbitudeCore/Classifier/DeadlineBound.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"

namespace halvo {

using namespace ModelIntegrityGuard;

ModelIntegrityCheck::Subject ModelIntegrityCheck::Subject::of(std::string model, const Environment& environment) {
  auto manifest = LocalModelStore::manifest(model);
  return {.model = std::move(model),
          .manifest = std::move(manifest),
          .modelsDirectory = LocalModelStore::modelsDirectory(environment),
          .refusalNote = UserFolders::supportDir(environment) / refusalNoteFileName};
}

ModelIntegrityCheck::ModelIntegrityCheck(Subject subject, std::string endpoint, HTTPTransport& session, LogSink log)
    : subject_(std::move(subject)), endpoint_(std::move(endpoint)), session_(session), log_(std::move(log)) {}

FileCheck ModelIntegrityCheck::fileCheck(const Subject& subject) {
  if (!subject.manifest) return FileUnknownModel{};
  return match(
      LocalModelStore::diskState(*subject.manifest, subject.modelsDirectory),
      [](const LocalModelStore::Missing&) -> FileCheck { return FileMissing{}; },
      [](const LocalModelStore::NeedsVerification& stale) -> FileCheck { return FileStale{Text::join(stale.files, ", ")}; },
      [](const LocalModelStore::Verified&) -> FileCheck { return FileVerified{}; });
}

Verdict ModelIntegrityCheck::verdict(const std::stop_token& stop) {
  // A volume that hangs must not hold the tick: the look gets its own copy of everything and is left behind.
  const auto files = DeadlineBound::run(checkTimeout, stop, [subject = subject_](const std::stop_token&) { return fileCheck(subject); });
  if (!files) return CannotVerify{fmt::format("the model's files could not be looked at within {:g} s", checkTimeout)};
  const auto expected =
      subject_.manifest ? std::optional(LocalModelStore::path(subject_.manifest->weights, subject_.modelsDirectory)) : std::nullopt;
  return verify(expected, *files, endpoint_, session_, stop);
}

TickDecision ModelIntegrityCheck::decide(std::int64_t nowMs, const std::stop_token& stop) {
  const auto found = verdict(stop);
  auto decision = tickDecision(subject_.model, found, nowMs);
  keepNote(found, decision.note);
  return decision;
}

void ModelIntegrityCheck::keepNote(const Verdict& verdict, const std::optional<RefusalNote>& note) {
  if (std::holds_alternative<Matches>(verdict)) {
    std::error_code ignored;
    std::filesystem::remove(subject_.refusalNote, ignored);
  }
  if (!note) return;
  // A note that says the same already keeps the time it began.
  const auto kept = readRefusalNote(subject_.refusalNote);
  if (kept && kept->kind == note->kind && kept->model == note->model && kept->message == note->message) return;
  try {
    writeRefusalNote(*note, subject_.refusalNote);
  } catch (const std::system_error& error) {
    log_(fmt::format("{} not written: {}", refusalNoteFileName, error.what()));
  }
}

}  // namespace halvo
