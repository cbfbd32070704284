#include "AmbitudeCore/Classifier/ModelIntegrityGuard.h"

#include <fmt/format.h>

#include <system_error>

#include "AmbitudeCore/Classifier/ModelReply.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo::ModelIntegrityGuard {
namespace {

bool isSameFile(const fs::path& a, const fs::path& b) {
  if (!a.is_absolute() || !b.is_absolute()) return false;
  std::error_code errorA, errorB;
  const auto standardA = fs::weakly_canonical(a, errorA), standardB = fs::weakly_canonical(b, errorB);
  return !errorA && !errorB && standardA == standardB;
}

/// A path that some server claims, as a log line can bear it.
std::string told(const std::string& path) {
  constexpr std::size_t pathCap = 1024;
  return ScreenText::sanitize(path, pathCap);
}

constexpr std::string_view refusing = "REFUSING TO JUDGE (#986): ";

TickDecision refused(std::string words) { return {.refusal = std::string(refusing) + std::move(words)}; }

TickDecision refused(std::string words, RefusalNote note) {
  auto decision = refused(std::move(words));
  decision.note = std::move(note);
  return decision;
}

}  // namespace

Verdict evaluate(const std::optional<fs::path>& expectedPath, const FileCheck& fileCheck, const std::string& servedPath) {
  return match(
      fileCheck,
      [&](const FileVerified&) -> Verdict {
        if (!expectedPath) return UnknownModel{servedPath};
        if (isSameFile(*expectedPath, servedPath)) return Matches{servedPath};
        return ServingOtherFile{expectedPath->string(), servedPath};
      },
      [](const FileMissing&) -> Verdict { return ModelAbsent{}; },
      [&](const FileUnknownModel&) -> Verdict { return UnknownModel{servedPath}; },
      [](const FileStale& stale) -> Verdict { return FileChanged{stale.text}; });
}

std::string servedPathIn(std::string_view props) {
  const auto body = JSONValue::parse(props);
  if (body)
    for (const auto* found : {body->find("model_path"), body->at({"default_generation_settings", "model_path"})})
      if (found && found->stringValue() && !found->stringValue()->empty()) return *found->stringValue();
  throw FetchError("llama-server /props carried no model_path: " + ModelReply::excerpt(Text::scrubbed(props)));
}

std::string fetchServedPath(std::string_view endpoint, HTTPTransport& session, const std::stop_token& stop) {
  try {
    const auto response = session.send({.url = joinedURL(endpoint, "props"), .timeoutSec = fetchTimeout}, stop);
    if (!response.isSuccess()) throw FetchError(fmt::format("llama-server /props answered {}", response.status));
    return servedPathIn(response.body);
  } catch (const TransportError& error) {
    throw FetchError(error.what());
  }
}

Verdict verify(const std::optional<fs::path>& expectedPath, const FileCheck& fileCheck, std::string_view endpoint, HTTPTransport& session,
               const std::stop_token& stop) {
  if (std::holds_alternative<FileMissing>(fileCheck) || std::holds_alternative<FileStale>(fileCheck))
    return evaluate(expectedPath, fileCheck, {});
  try {
    return evaluate(expectedPath, fileCheck, fetchServedPath(endpoint, session, stop));
  } catch (const FetchError& error) {
    return CannotVerify{error.what()};
  }
}

TickDecision tickDecision(std::string_view model, const Verdict& verdict, std::int64_t nowMs) {
  const auto note = [&](Kind kind, std::string message) {
    return RefusalNote{.kind = kind, .model = std::string(model), .message = std::move(message), .atMs = nowMs};
  };
  return match(
      verdict, [](const Matches&) { return TickDecision{}; },
      [&](const ServingOtherFile& other) {
        return refused(fmt::format("the local server is serving {}, not the verified {} for {}. Something else may be listening on the "
                                   "model port, or the server wasn't restarted after a model change. Not sending a screenshot to it.",
                                   told(other.actual), other.expected, model),
                       note(Kind::modelReplaced, fmt::format("Paused: the local model server isn't running the {} files Halvo downloaded. "
                                                             "Download the model again to resume.",
                                                             model)));
      },
      [&](const FileChanged& changed) {
        return refused(
            fmt::format("{}'s files changed on disk since they were verified ({}). Not sending a screenshot to it.", model, changed.text),
            note(Kind::modelReplaced,
                 fmt::format("Paused: {}'s files changed since they were checked. Download the model again to resume.", model)));
      },
      [&](const UnknownModel& unknown) {
        return TickDecision{.warnings = {fmt::format("model integrity (#986): {} has no Halvo download to verify against (custom "
                                                     "AMBITCHECK_MODEL?); the server reports {} — judging without an identity check",
                                                     model, told(unknown.servedPath))}};
      },
      [&](const ModelAbsent&) {
        return refused(fmt::format("{} isn't downloaded, so there is nothing verified to judge with. Not sending a screenshot.", model));
      },
      [&](const CannotVerify& cannot) {
        return refused(fmt::format("it can't be told which files are served for {} ({}). Not sending a screenshot.", model, cannot.why),
                       note(Kind::cannotVerify, "Paused: the local model server can't be asked which model it is running."));
      });
}

void writeRefusalNote(const RefusalNote& note, const fs::path& to) {
  const JSONObject row{
      {"kind", rawValue(note.kind)}, {"model", note.model}, {"message", note.message}, {"at", ISO8601::utcMillis(note.atMs)}};
  writeFileAtomically(to, JSONValue(row).dumpPretty() + "\n");
}

std::optional<RefusalNote> readRefusalNote(const fs::path& from) {
  try {
    return decodeRefusalNote(readFile(from));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::optional<RefusalNote> decodeRefusalNote(std::string_view json) {
  const auto value = JSONValue::parse(json);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto kind = fromRawValue<Kind>(object->string("kind").value_or(""));
  const auto at = ISO8601::parse(object->string("at").value_or(""));
  const auto model = object->string("model"), message = object->string("message");
  if (!kind || !at || !model || !message) return std::nullopt;
  return RefusalNote{.kind = *kind, .model = *model, .message = *message, .atMs = *at};
}

}  // namespace halvo::ModelIntegrityGuard
