#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Classifier/ModelIntegrityGuard.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"

namespace halvo {

/// The guard at work in front of a tick: looks at the files, asks the server, keeps the note for the person up to date.
class ModelIntegrityCheck {
 public:
  struct Subject {
    std::string model = {};
    std::optional<LocalModelStore::Manifest> manifest = {};  ///< absent: a model there is no download for
    std::filesystem::path modelsDirectory = {};
    std::filesystem::path refusalNote = {};
    /// What this account's files and catalogue say of a model.
    static Subject of(std::string model, const Environment& environment);
  };
  /// `session` must outlive it. `log`: for a note that can't be written.
  ModelIntegrityCheck(Subject subject, std::string endpoint, HTTPTransport& session, LogSink log);

  /// At every tick, before anything is asked of the server. No file is read, and nothing is remembered from tick to tick. Throws
  /// `Cancelled`.
  ModelIntegrityGuard::TickDecision decide(std::int64_t nowMs, const std::stop_token& stop);

  /// The store's answer, without a limit of time.
  static ModelIntegrityGuard::FileCheck fileCheck(const Subject& subject);

 private:
  ModelIntegrityGuard::Verdict verdict(const std::stop_token& stop);
  void keepNote(const ModelIntegrityGuard::Verdict& verdict, const std::optional<ModelIntegrityGuard::RefusalNote>& note);

  Subject subject_;
  std::string endpoint_;
  HTTPTransport& session_;
  LogSink log_;
};

}  // namespace halvo
