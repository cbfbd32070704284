#include <gtest/gtest.h>

#include <limits>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Provisioning/LlamaServerStatus.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "tests/CaptureShared/Provisioning/SmallModel.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using LocalModelStore::DiskState;

TEST(LocalModelStore, aStampHoldsAsLongAsTheFileIsTheSame) {
  const test::TemporaryFolder folder;
  const test::SmallModel model;
  const auto manifest = model.manifest();
  const auto &directory = folder.path(), weights = directory / "weights";
  const auto state = [&] { return LocalModelStore::diskState(manifest, directory); };
  const DiskState verified = LocalModelStore::Verified{}, unproved = LocalModelStore::NeedsVerification{{"weights"}};
  EXPECT_EQ(state(), DiskState(LocalModelStore::Missing{{"weights", "projector"}}));
  folder.write("projector", model.projector), folder.write("weights", "short");
  EXPECT_EQ(state(), DiskState(LocalModelStore::Missing{{"weights"}}));
  folder.write("weights", model.weights);
  EXPECT_EQ(state(), DiskState(LocalModelStore::NeedsVerification{{"weights", "projector"}}));

  const std::pair<const char*, std::function<void()>> changes[] = {
      {"touched", [&] { fs::last_write_time(weights, fs::last_write_time(weights) + std::chrono::nanoseconds(1)); }},
      {"replaced by its equal",
       [&] {
         const auto time = fs::last_write_time(weights);
         folder.write("copy", model.weights), fs::rename(directory / "copy", weights), fs::last_write_time(weights, time);
       }},
      {"edited", [&] { std::fstream(weights, std::ios::in | std::ios::out) << "x"; }},
      {"another digest in the catalogue", [&] { LocalModelStore::recordVerified({.fileName = "weights", .sha256 = "0"}, directory); }}};
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    folder.write("weights", model.weights);
    LocalModelStore::verify(manifest, directory);
    EXPECT_EQ(state(), verified);
    change();
    EXPECT_EQ(state(), unproved);
  }
  folder.write("weights", model.weights);
  LocalModelStore::verify(manifest, directory);
  for (const char* damage : {"", "[", "{}", "[1]", R"([{"file_name": "weights"}])"}) {
    folder.write("verified.json", damage);
    EXPECT_EQ(state(), DiskState(LocalModelStore::NeedsVerification{{"weights", "projector"}})) << damage;
  }
}

TEST(LocalModelStore, verifySaysWhatIsWrongAndStampsOnlyWhatIsRight) {
  const test::TemporaryFolder folder;
  const test::SmallModel model;
  using Kind = LocalModelStore::VerificationError::Kind;
  using Wrong = std::pair<Kind, std::string>;
  const auto wrong = [&]() -> std::optional<Wrong> {
    try {
      return LocalModelStore::verify(model.manifest(), folder.path()), std::nullopt;
    } catch (const LocalModelStore::VerificationError& error) {
      return Wrong(error.kind(), error.file());
    }
  };
  EXPECT_EQ(wrong(), Wrong(Kind::missing, "weights"));
  folder.write("weights", model.weights);
  fs::create_directory(folder.path() / "projector");
  EXPECT_EQ(wrong(), Wrong(Kind::unreadable, "projector"));
  EXPECT_EQ(LocalModelStore::readStamps(folder.path()).size(), 1u);
  fs::remove(folder.path() / "projector"), folder.write("projector", test::noise(20'000, 9));
  EXPECT_EQ(wrong(), Wrong(Kind::mismatch, "projector"));
  EXPECT_EQ(LocalModelStore::readStamps(folder.path()).size(), 1u);
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(LocalModelStore::verify(model.manifest(), folder.path(), stopped.get_token()), Cancelled);
}

TEST(LocalModelStore, stampsKeepEveryDigit) {
  const std::vector<LocalModelStore::Stamp> stamps{
      {.fileName = "a \"b\"\n",
       .sha256 = "00ff",
       .size = 1,
       .modifiedNs = 1'795'569'530'581'123'457,
       .inode = std::numeric_limits<std::uint64_t>::max()},
      {.fileName = "", .sha256 = "", .size = std::numeric_limits<std::int64_t>::max(), .modifiedNs = -1, .inode = 0}};
  EXPECT_EQ(LocalModelStore::decodeStamps(LocalModelStore::encodeStamps(stamps)), stamps);
}

TEST(LlamaServerStatus, keptAndTold) {
  using State = LlamaServerStatus::State;
  const std::pair<State, const char*> words[] = {
      {State::starting, "the local model is starting"},
      {State::modelMissing, "m hasn't been downloaded"},
      {State::checksumMismatch, "m's files failed their checksum — download it again"},
      {State::unknownModel, "there's no download for m"},
      {State::runtimeMissing, "this copy of Halvo is missing its model runtime — reinstall Halvo"},
      {State::failed, "the local model couldn't start (no room)"}};
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "llama-server-status.json";
  for (const auto& [state, want] : words) {
    const LlamaServerStatus status{.state = state, .model = "m", .message = "no room", .atMs = 1'795'569'530'581};
    EXPECT_EQ(status.healthMessage(), want);
    status.write(file);
    EXPECT_EQ(LlamaServerStatus::read(file), status);
  }
  EXPECT_EQ(readFile(file),
            "{\n  \"at\": \"2026-11-25T01:18:50.581Z\",\n  \"message\": \"no room\",\n  \"model\": \"m\",\n  \"state\": \"failed\"\n}\n");
  for (const char* damage :
       {"", "[]", R"({"state":"asleep","model":"m","at":"2026-11-25T01:18:50Z"})", R"({"state":"failed","model":"m","at":1})"})
    EXPECT_EQ(LlamaServerStatus::decode(damage), std::nullopt) << damage;
  EXPECT_EQ(LlamaServerStatus::read(folder.path() / "none"), std::nullopt);
}

}  // namespace
}  // namespace halvo
