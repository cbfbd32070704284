#include "CaptureShared/Provisioning/LocalModelInstaller.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelDownloadHost.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Provisioning/ModelsFolderLock.h"

namespace halvo {
namespace {

constexpr int rangeNotSatisfiable = 416;

bool isRedirect(int status) { return status == 301 || status == 302 || status == 303 || status == 307 || status == 308; }

ModelsFolderLock lockFolder(const std::filesystem::path& directory, const std::string& file) {
  try {
    std::filesystem::create_directories(directory.parent_path());
    makePrivateFolder(directory);
    ModelsFolderLock lock(directory);
    if (!lock) throw InstallError::fileSystem(file, tr("another install is at work in {}", directory.string()));
    return lock;
  } catch (const std::system_error& error) {
    throw InstallError::fileSystem(file, tr("couldn't create {}: {}", directory.string(), error.code().message()));
  }
}

}  // namespace

std::filesystem::path LocalModelInstaller::partialPath(const Artifact& artifact, const std::filesystem::path& directory) {
  auto path = LocalModelStore::path(artifact, directory);
  return path += partialSuffix;
}

std::int64_t LocalModelInstaller::bytesRemaining(const Manifest& manifest) const {
  std::int64_t remaining = 0;
  for (const auto* artifact : manifest.artifacts()) {
    const auto whole = LocalModelStore::fileIdentity(LocalModelStore::path(*artifact, setup_.directory));
    if (whole && whole->size == artifact->bytes) continue;
    if (OllamaBlobReuse::candidateNeedsNoNewSpace(*artifact, setup_.ollamaModelsDirectory, setup_.directory)) continue;
    const auto partial = LocalModelStore::fileIdentity(partialPath(*artifact, setup_.directory));
    remaining += artifact->bytes - std::min(partial ? partial->size : 0, artifact->bytes);
  }
  return remaining;
}

std::optional<std::string> LocalModelInstaller::diskShortfall(const Manifest& manifest, std::optional<std::int64_t> availableBytes,
                                                              std::optional<std::int64_t> required) const {
  const auto needed = required ? *required : bytesRemaining(manifest);
  if (needed == 0 || ModelProvisioning::hasSufficientDiskSpace(needed, availableBytes)) return std::nullopt;
  return ModelProvisioning::insufficientDiskSpaceMessage(manifest.model, needed, *availableBytes);
}

void LocalModelInstaller::install(const Manifest& manifest, const OnProgress& onProgress, const std::stop_token& stop) {
  const auto lock = lockFolder(setup_.directory, manifest.weights.fileName);
  std::int64_t done = 0;
  for (const auto* artifact : manifest.artifacts()) {
    installOne(
        *artifact,
        [&](Stage stage, std::int64_t bytes) {
          if (onProgress) onProgress({.stage = std::move(stage), .completedBytes = done + bytes, .totalBytes = manifest.totalBytes()});
        },
        stop);
    done += artifact->bytes;
  }
}

void LocalModelInstaller::installOne(const Artifact& artifact, const Report& report, const std::stop_token& stop) {
  if (LocalModelStore::stampMatches(artifact, setup_.directory)) return;
  report(Checking{artifact.fileName}, 0);
  try {
    if (isThereAlready(artifact, report, stop)) return;
    const auto operations = setup_.fileOperations.value_or(OllamaBlobReuse::FileOperations::real(stop));
    const auto outcome = OllamaBlobReuse::reuse(artifact, setup_.directory, setup_.ollamaModelsDirectory, operations, stop);
    if (!std::holds_alternative<OllamaBlobReuse::Reused>(outcome)) return download(artifact, report, stop);
    std::error_code ignored;
    std::filesystem::remove(partialPath(artifact, setup_.directory), ignored);
  } catch (const std::system_error& error) {
    throw InstallError::fileSystem(artifact.fileName, error.what());
  }
}

bool LocalModelInstaller::isThereAlready(const Artifact& artifact, const Report& report, const std::stop_token& stop) {
  const auto file = LocalModelStore::path(artifact, setup_.directory);
  const auto identity = LocalModelStore::fileIdentity(file);
  if (!identity || identity->size != artifact.bytes) return false;
  LocalModelStore::HashedFile found;
  try {
    found = LocalModelStore::hashed(file, stop, [&](std::int64_t bytes) { report(Checking{artifact.fileName}, bytes); });
  } catch (const std::system_error& error) {
    throw InstallError::fileSystem(artifact.fileName, tr("couldn't open it to check it: {}", error.code().message()));
  }
  if (found.sha256 == artifact.sha256) {
    LocalModelStore::recordVerified(artifact, setup_.directory, found.identity);
    return true;
  }
  std::filesystem::remove(file);
  return false;
}

void LocalModelInstaller::download(const Artifact& artifact, const Report& report, const std::stop_token& stop) {
  const auto partial = partialPath(artifact, setup_.directory);
  for (bool mayRestart = true;; mayRestart = false) {
    StreamingWriter writer({.artifact = artifact,
                            .partial = partial,
                            .granularity = setup_.progressGranularityBytes,
                            .onWritten = [&](std::int64_t bytes) { report(Downloading{artifact.fileName}, bytes); },
                            .onRead = [&](std::int64_t bytes) { report(Checking{artifact.fileName}, std::min(bytes, artifact.bytes)); }},
                           stop);
    // A file that was whole when its process was killed needs no request.
    if (writer.written() == artifact.bytes || std::holds_alternative<Completed>(fetch(artifact, writer, stop))) {
      const auto identity = writer.finish();
      std::filesystem::rename(partial, LocalModelStore::path(artifact, setup_.directory));
      LocalModelStore::recordVerified(artifact, setup_.directory, identity);
      return report(Downloading{artifact.fileName}, artifact.bytes);
    }
    // Once: a server that refuses a whole file too will not be asked for ever.
    if (!mayRestart) throw InstallError::httpStatus(artifact.fileName, rangeNotSatisfiable);
    std::filesystem::remove(partial);
  }
}

LocalModelInstaller::FetchOutcome LocalModelInstaller::fetch(const Artifact& artifact, StreamingWriter& writer,
                                                             const std::stop_token& stop) {
  struct BeginsElsewhere {};
  bool hasBegun = false;
  const auto begin = [&](const HTTPResponse& head) {
    hasBegun = true;
    if (!writer.begin(head)) throw BeginsElsewhere();
  };
  // Identity: a range of a compressed body would be a range of other bytes.
  HTTPRequest request{.url = artifact.url, .headers = {{"Accept-Encoding", "identity"}}, .timeoutSec = setup_.timeoutSec, .onHead = begin};
  if (const auto range = writer.rangeHeader()) request.headers.emplace_back("Range", *range);
  try {
    for (int hops = 0;; ++hops) {
      const auto response = setup_.transport.stream(
          request, [&](std::string_view piece) { writer.take(piece); }, stop);
      if (isRedirect(response.status) && hops < mostRedirects) {
        const auto next = ModelDownloadHost::redirect(request.url, response.header("Location").value_or(""));
        if (!next) throw InstallError::httpStatus(artifact.fileName, response.status);
        request.url = *next;
        continue;
      }
      if (response.status == rangeNotSatisfiable) return RangeNotSatisfiable{};
      if (!response.isSuccess()) throw InstallError::httpStatus(artifact.fileName, response.status);
      if (!hasBegun) begin(response);  // an answer without a body
      return Completed{};
    }
  } catch (const BeginsElsewhere&) {
    return RangeNotSatisfiable{};
  } catch (const TransportError& error) {
    throw InstallError::network(artifact.fileName, error.what());
  }
}

}  // namespace halvo
