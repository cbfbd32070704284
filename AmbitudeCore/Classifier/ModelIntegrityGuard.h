#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Net/HTTPTransport.h"

/// A picture of the screen goes only to a model that is proved to be the one that was downloaded. The decisions are pure.
namespace halvo::ModelIntegrityGuard {

namespace fs = std::filesystem;

inline constexpr double fetchTimeout = 5.0;  ///< seconds for the server's answer
inline constexpr double checkTimeout = 5.0;  ///< seconds for the look at the files

/// What the model store says of the files on the disk.
struct FileStale {
  std::string text;  ///< which files are not as they were verified
  bool operator==(const FileStale&) const = default;
};
struct FileVerified {
  bool operator==(const FileVerified&) const = default;
};
struct FileMissing {
  bool operator==(const FileMissing&) const = default;
};
/// A model there is no download for.
struct FileUnknownModel {
  bool operator==(const FileUnknownModel&) const = default;
};
using FileCheck = std::variant<FileStale, FileVerified, FileMissing, FileUnknownModel>;

struct Matches {
  std::string path;
  bool operator==(const Matches&) const = default;
};
struct ServingOtherFile {
  std::string expected, actual;
  bool operator==(const ServingOtherFile&) const = default;
};
struct FileChanged {
  std::string text;
  bool operator==(const FileChanged&) const = default;
};
struct UnknownModel {
  std::string servedPath;
  bool operator==(const UnknownModel&) const = default;
};
struct ModelAbsent {
  bool operator==(const ModelAbsent&) const = default;
};
/// It could not be told what is served, or what is on the disk.
struct CannotVerify {
  std::string why;
  bool operator==(const CannotVerify&) const = default;
};
using Verdict = std::variant<Matches, ServingOtherFile, FileChanged, UnknownModel, ModelAbsent, CannotVerify>;

/// `expectedPath` is that of the weights that were verified, absent for a model we don't know. Two paths are equal when they are the same
/// file path with links resolved; a served path that is not absolute is never equal.
Verdict evaluate(const std::optional<fs::path>& expectedPath, const FileCheck& fileCheck, const std::string& servedPath);

/// The server's answer could not be had, or names no file.
class FetchError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
/// The path of the weights that the server at a base URL serves: `model_path` of "/props", else the one in its
/// `default_generation_settings`. Throws `FetchError` and `Cancelled`.
std::string fetchServedPath(std::string_view endpoint, HTTPTransport& session, const std::stop_token& stop);
/// The path in the body of such an answer. Throws `FetchError`: "llama-server /props carried no model_path:" and the body's beginning.
std::string servedPathIn(std::string_view props);

/// Asks the server, then evaluates; of files that are missing or changed no server's answer can make the right ones, so it is not asked.
/// Throws `Cancelled`.
Verdict verify(const std::optional<fs::path>& expectedPath, const FileCheck& fileCheck, std::string_view endpoint, HTTPTransport& session,
               const std::stop_token& stop);

enum class Kind { modelReplaced, cannotVerify };

/// Why judging is paused, for the person: "model-integrity-refusal.json" in the support folder.
struct RefusalNote {
  Kind kind = Kind::cannotVerify;
  std::string model = {};
  std::string message = {};
  std::int64_t atMs = 0;  ///< since the epoch
  bool operator==(const RefusalNote&) const = default;
};
inline constexpr std::string_view refusalNoteFileName = "model-integrity-refusal.json";

struct TickDecision {
  std::optional<std::string> refusal = {};  ///< present: no screenshot is taken and nothing is judged; words for the log
  std::optional<RefusalNote> note = {};
  std::vector<std::string> warnings = {};  ///< for the log, at every tick
  bool operator==(const TickDecision&) const = default;
};
TickDecision tickDecision(std::string_view model, const Verdict& verdict, std::int64_t nowMs);

/// Replaces the note. Throws `std::system_error`.
void writeRefusalNote(const RefusalNote& note, const fs::path& to);
/// Absent for a file that is missing or is no note.
std::optional<RefusalNote> readRefusalNote(const fs::path& from);
std::optional<RefusalNote> decodeRefusalNote(std::string_view json);

}  // namespace halvo::ModelIntegrityGuard

namespace halvo {

template <>
struct RawValues<ModelIntegrityGuard::Kind> {
  static constexpr std::array table{std::pair{ModelIntegrityGuard::Kind::modelReplaced, "modelReplaced"},
                                    std::pair{ModelIntegrityGuard::Kind::cannotVerify, "cannotVerify"}};
};

}  // namespace halvo
