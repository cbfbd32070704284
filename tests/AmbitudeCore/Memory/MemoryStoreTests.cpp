// The memory files and what a wipe leaves of them.

#include <gtest/gtest.h>

#include "AmbitudeCore/Memory/DreamLock.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "AmbitudeCore/Memory/StandingMemoryReader.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

PeriodDigest digestAt(std::int64_t startMs) {
  return {.periodStartTsMs = startMs,
          .periodEndTsMs = startMs + 10,
          .generatedAtTsMs = startMs + 20,
          .summary = "a \"quiet\"\nday",
          .facts = {{.text = "works nights", .provenance = MemoryFactProvenance::asserted, .sourceEventTsMs = {1, 1'764'054'375'123}}},
          .lessons = {"short words help"}};
}
StandingMemory memoryAt(std::int64_t ms) {
  return {.regeneratedAtTsMs = ms,
          .digestCount = 2,
          .threads = {{.name = "essay", .status = MemoryThreadStatus::dropped, .notes = "given up"}},
          .lessons = {"l"},
          .facts = digestAt(0).facts,
          .salvaged = true,
          .seed = 7,
          .salvageDetail = "why"};
}
std::size_t filesIn(const std::filesystem::path& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(MemoryStore, readsBackWhatWasWritten) {
  test::TemporaryFolder folder;
  const auto& root = folder.path();
  EXPECT_TRUE(MemoryStore::readAllDigests(root).empty());
  EXPECT_EQ(MemoryStore::readStanding(root), std::nullopt) << "absent, not empty";
  EXPECT_EQ(MemoryStore::readSequentialState(root), std::nullopt);
  for (const auto start : {200, 100, 1000}) MemoryStore::writeDigest(digestAt(start), root);
  EXPECT_EQ(MemoryStore::readAllDigests(root), (std::vector{digestAt(100), digestAt(200), digestAt(1000)})) << "by time, not by name";
  MemoryStore::writeStanding(memoryAt(1), root);
  MemoryStore::writeStanding(memoryAt(2), root);
  EXPECT_EQ(MemoryStore::readStanding(root), memoryAt(2));
  const SequentialMemoryState state{memoryAt(3), {100, 200}};
  MemoryStore::writeSequentialState(state, root);
  EXPECT_EQ(MemoryStore::readSequentialState(root), state);
  const auto json = readFile(MemoryStore::digestURL(100, root));
  for (const auto* key : {"\"period_start_ts_ms\": 100", "\"source_event_ts_ms\"", "1764054375123", "\"provenance\": \"asserted\""})
    EXPECT_NE(json.find(key), std::string::npos) << key << json;
}

TEST(MemoryStore, aDigestIsWrittenOnceAndNothingIsLeftBehind) {
  test::TemporaryFolder folder;
  MemoryStore::writeDigest(digestAt(100), folder.path());
  const auto before = readFile(MemoryStore::digestURL(100, folder.path()));
  auto other = digestAt(100);
  other.summary = "another";
  try {
    MemoryStore::writeDigest(other, folder.path());
    FAIL() << "overwritten";
  } catch (const MemoryStoreError& error) {
    EXPECT_EQ(error.kind(), MemoryStoreError::Kind::digestAlreadyExists);
  }
  EXPECT_EQ(readFile(MemoryStore::digestURL(100, folder.path())), before);
  for (const auto* scrap : {"period-digests/100.json.77", "period-digests/9.json.5.aBcDeF", "standing-memory.json.5.aBcDeF"})
    folder.write(std::string("memory/") + scrap, "{");
  folder.write("memory/period-digests/notes.json.txt", "mine");
  MemoryStore::removeScraps(folder.path());
  EXPECT_EQ(filesIn(MemoryStore::digestsFolder(folder.path())), 2u) << "the digest, and what is not ours";
  EXPECT_EQ(filesIn(MemoryStore::folder(folder.path())), 1u);
}

TEST(MemoryStore, aDamagedFileIsAnErrorAndAMissingRootIsNotMade) {
  test::TemporaryFolder folder;
  const auto whole = digestAt(100).encoded().dump();
  for (const auto& text : {std::string(), whole.substr(0, whole.size() / 2), std::string("[]"), std::string(R"({"summary":"x"})"),
                           std::string(whole).replace(whole.find("works"), 1, "\xff")}) {
    folder.write("memory/period-digests/100.json", text);
    EXPECT_THROW(MemoryStore::readAllDigests(folder.path()), MemoryStoreError) << text;
    folder.write("memory/standing-memory.json", text);
    EXPECT_THROW(MemoryStore::readStanding(folder.path()), MemoryStoreError) << text;
  }
  auto older = digestAt(100).encoded();
  older.mutableObject()->erase("salvaged");
  EXPECT_EQ(PeriodDigest::decode(older), digestAt(100));
  const auto gone = folder.path() / "gone";
  EXPECT_THROW(MemoryStore::writeDigest(digestAt(1), gone), std::system_error);
  EXPECT_TRUE(std::holds_alternative<DreamLock::Unavailable>(DreamLock::acquire(gone)));
  EXPECT_FALSE(std::filesystem::exists(gone));
}

TEST(MemoryWipe, leavesWhatCameAtOrAfterIt) {
  test::TemporaryFolder folder;
  const auto log = MemoryWipeLog::defaultURL(folder.path());
  EXPECT_EQ(MemoryWipeLog::latestAtMs(log), std::nullopt);
  MemoryWipeLog::request(200, log);
  MemoryWipeLog::request(100, log);
  folder.write("memory-wipes.jsonl", readFile(log) + "{\"at_ms\":9");
  EXPECT_EQ(MemoryWipeLog::latestAtMs(log), 200);
  const std::vector digests{digestAt(199), digestAt(200), digestAt(201)};
  EXPECT_EQ(MemoryWipeFilter::digests(digests, 200), (std::vector{digestAt(200), digestAt(201)}));
  EXPECT_EQ(MemoryWipeFilter::digests(digests, std::nullopt), digests);
  EXPECT_EQ(MemoryWipeFilter::standing(memoryAt(199), 200), std::nullopt);
  EXPECT_EQ(MemoryWipeFilter::standing(memoryAt(200), 200), memoryAt(200));
  EXPECT_EQ(MemoryWipeFilter::corrections({{.atMs = 199}, {.atMs = 200}}, 200).size(), 1u);
}

TEST(DreamLock, oneAtATime) {
  test::TemporaryFolder folder;
  auto first = std::optional(DreamLock::acquire(folder.path()));
  EXPECT_TRUE(std::holds_alternative<DreamLock::Held>(*first));
  EXPECT_TRUE(std::holds_alternative<DreamLock::HeldElsewhere>(DreamLock::acquire(folder.path())));
  first.reset();
  EXPECT_TRUE(std::holds_alternative<DreamLock::Held>(DreamLock::acquire(folder.path())));
}

TEST(StandingMemoryReader, readsAgainOnlyWhatChangedAndForgetsAtOnce) {
  test::TemporaryFolder folder;
  std::vector<std::string> log;
  StandingMemoryReader reader(folder.path(), [&](const std::string& line) { log.push_back(line); });
  EXPECT_EQ(reader.read().memory, std::nullopt);
  MemoryStore::writeStanding(memoryAt(200), folder.path());
  EXPECT_EQ(reader.read().memory, memoryAt(200));
  const auto* before = reader.read().memory->facts.data();
  EXPECT_EQ(reader.read().memory->facts.data(), before) << "not read again";
  MemoryWipeLog::request(201, MemoryWipeLog::defaultURL(folder.path()));
  EXPECT_EQ(reader.read().memory, std::nullopt);
  EXPECT_EQ(reader.read().wipeAtMs, 201);
  folder.write("memory/standing-memory.json", "{");
  reader.read();
  reader.read();
  EXPECT_EQ(log.size(), 1u) << "told once";
  EXPECT_EQ(reader.read().wipeAtMs, 201);
  auto large = memoryAt(300);
  for (int i = 0; i < 500; ++i) large.facts.push_back({.text = "a fact that nobody pruned, number " + std::to_string(i)});
  MemoryStore::writeStanding(large, folder.path());
  ASSERT_TRUE(reader.read().memory);
  EXPECT_LT(reader.read().memory->facts.size(), 150u);
  EXPECT_EQ(reader.read().memory->facts.back(), large.facts.back());
  // What can't be read about forgetting counts as "forget all".
  std::filesystem::remove(MemoryWipeLog::defaultURL(folder.path()));
  std::filesystem::create_directory(MemoryWipeLog::defaultURL(folder.path()));
  EXPECT_EQ(reader.read().memory, std::nullopt);
}

}  // namespace
}  // namespace halvo
