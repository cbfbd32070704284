#include "CaptureShared/Provisioning/ModelCatalogue.h"

#include <fmt/format.h>

#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo::LocalModelStore {
namespace {

struct Pinned {
  std::string_view file;
  std::int64_t bytes;
  std::string_view sha256;
};
struct Row {
  std::string_view model, repository, revision;
  Pinned weights, projector;
};

constexpr Row catalogue[] = {
    {"gemma4:12b-it-qat",
     "gemma-4-12B-it-qat-q4_0-gguf",
     "29d097773436b69ff9feafd636ab4cf873786537",
     {"gemma-4-12b-it-qat-q4_0.gguf", 6975879296, "93567e57a8fe10b23569b9d9ec38cd005deedf71e29477c421a4b83f418a538b"},
     {"mmproj-gemma-4-12b-it-qat-q4_0.gguf", 175115616, "cb018338a7538a9814d994bfe54644c71eb7ed54e31eae2f721e45fd3c260da7"}},
    {"gemma4:e4b-it-qat",
     "gemma-4-E4B-it-qat-q4_0-gguf",
     "4b4a2c1d584be7264f87aac328a1bc739ce81b6c",
     {"gemma-4-E4B_q4_0-it.gguf", 5154941280, "676c35070db6dbe52f93e9c864ee0fba4eddea94b9c875d9cb10daff453fbaee"},
     {"gemma-4-E4B-it-mmproj.gguf", 991552256, "7498a37cb619e55f2fcf87eb931f56e99389ed6d432e4c5c66110694c0d65578"}},
    {"gemma4:e2b-it-qat",
     "gemma-4-E2B-it-qat-q4_0-gguf",
     "675cff42a74c774d6cb76f76d8eacb49b48c9b93",
     {"gemma-4-E2B_q4_0-it.gguf", 3349516256, "fa401b55b07ee70a54c6dae3903c783a6e65064312529ea57175cb5f8dec6634"},
     {"gemma-4-E2B-it-mmproj.gguf", 986833664, "021059cce659fe7f9170d5599761d7bbaf644b798dab9503aca30dc43e6beb14"}},
};

Artifact artifact(const Row& row, const Pinned& file, std::string_view downloadBase) {
  return {.fileName = std::string(file.file),
          .url = fmt::format("{}/google/{}/resolve/{}/{}", downloadBase, row.repository, row.revision, file.file),
          .sha256 = std::string(file.sha256),
          .bytes = file.bytes};
}

}  // namespace

std::vector<Manifest> manifests(std::string_view downloadBase) {
  std::vector<Manifest> all;
  for (const auto& row : catalogue)
    all.push_back({.model = std::string(row.model),
                   .weights = artifact(row, row.weights, downloadBase),
                   .projector = artifact(row, row.projector, downloadBase)});
  return all;
}

std::optional<Manifest> manifest(std::string_view name, std::string_view downloadBase) {
  for (auto& one : manifests(downloadBase))
    if (ModelProvisioning::modelNameMatches(one.model, name)) return std::move(one);
  return std::nullopt;
}

}  // namespace halvo::LocalModelStore
