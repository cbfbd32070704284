#include "CaptureShared/Provisioning/LocalModelStamps.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "CaptureShared/Foundation/JSONParse.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"

namespace halvo::LocalModelStore {
namespace {

// Straight from the parser: nanoseconds and inodes have more digits than a JSON value's double keeps.
std::optional<Stamp> decode(simdjson::dom::element element) {
  Stamp stamp;
  std::string_view fileName, sha256;
  if (element["file_name"].get(fileName) || element["sha256"].get(sha256) || element["size"].get(stamp.size) ||
      element["modified_ns"].get(stamp.modifiedNs) || element["inode"].get(stamp.inode))
    return std::nullopt;
  stamp.fileName = fileName;
  stamp.sha256 = sha256;
  return stamp;
}

std::string quoted(const std::string& text) { return JSONValue(text).dump(); }

}  // namespace

std::vector<Stamp> decodeStamps(std::string_view json) {
  std::vector<Stamp> stamps;
  simdjson::dom::parser parser;
  simdjson::dom::array list;
  if (parser.parse(json.data(), json.size()).get(list)) return stamps;
  for (const auto element : list)
    if (auto stamp = decode(element)) stamps.push_back(std::move(*stamp));
  return stamps;
}

std::string encodeStamps(const std::vector<Stamp>& stamps) {
  std::string text = "[";
  for (const auto& stamp : stamps)
    text +=
        fmt::format("{}\n  {{\"file_name\": {}, \"inode\": {}, \"modified_ns\": {}, \"sha256\": {}, \"size\": {}}}",
                    text.size() > 1 ? "," : "", quoted(stamp.fileName), stamp.inode, stamp.modifiedNs, quoted(stamp.sha256), stamp.size);
  return text + "\n]\n";
}

std::vector<Stamp> readStamps(const std::filesystem::path& directory) {
  try {
    return decodeStamps(readFile(directory / stampFileName));
  } catch (const std::system_error&) {
    return {};
  }
}

bool stampMatches(const Artifact& artifact, const std::filesystem::path& directory) {
  const auto now = fileIdentity(path(artifact, directory));
  if (!now) return false;
  const auto stamps = readStamps(directory);
  return std::any_of(stamps.begin(), stamps.end(), [&](const Stamp& stamp) {
    return stamp.fileName == artifact.fileName && stamp.sha256 == artifact.sha256 && stamp.size == now->size &&
           stamp.modifiedNs == now->mtimeNs && stamp.inode == now->inode;
  });
}

void recordVerified(const Artifact& artifact, const std::filesystem::path& directory) {
  recordVerified(artifact, directory, FileIdentity::of(path(artifact, directory)));
}

void recordVerified(const Artifact& artifact, const std::filesystem::path& directory, const FileIdentity& hashed) {
  auto stamps = readStamps(directory);
  std::erase_if(stamps, [&](const Stamp& stamp) { return stamp.fileName == artifact.fileName; });
  stamps.push_back(
      {.fileName = artifact.fileName, .sha256 = artifact.sha256, .size = hashed.size, .modifiedNs = hashed.mtimeNs, .inode = hashed.inode});
  writeFileAtomically(directory / stampFileName, encodeStamps(stamps));
}

void removeStamp(std::string_view fileName, const std::filesystem::path& directory) {
  auto stamps = readStamps(directory);
  if (std::erase_if(stamps, [&](const Stamp& stamp) { return stamp.fileName == fileName; }) > 0)
    writeFileAtomically(directory / stampFileName, encodeStamps(stamps));
}

}  // namespace halvo::LocalModelStore
