#include <gtest/gtest.h>

#include <limits>

#include "CaptureShared/Provisioning/InstallProgressText.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"
#include "CaptureShared/Provisioning/ModelDownloadHost.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Provisioning/StreamingWriter.h"
#include "Platform/Testing/FakePlatform.h"

namespace halvo {
namespace {

using namespace ModelProvisioning;

TEST(ModelProvisioning, whichModelForWhichMachine) {
  const std::pair<std::uint64_t, std::optional<std::string>> cases[] = {{minimumViableMemoryBytes - 1, std::nullopt},
                                                                        {minimumViableMemoryBytes, "gemma4:e2b-it-qat"},
                                                                        {PhysicalMemory::sixteenGB - 1, "gemma4:e2b-it-qat"},
                                                                        {PhysicalMemory::sixteenGB, "gemma4:e4b-it-qat"},
                                                                        {PhysicalMemory::fortyEightGB - 1, "gemma4:e4b-it-qat"},
                                                                        {PhysicalMemory::fortyEightGB, "gemma4:12b-it-qat"}};
  for (const auto& [memory, want] : cases) EXPECT_EQ(recommendedDefault(memory), want) << memory;
  const auto model = *known("gemma4:12b-it-qat");
  EXPECT_FALSE(modelFitsAvailableMemory(8'000'000'000 + 0x80000000ull - 1, model));
  EXPECT_TRUE(modelFitsAvailableMemory(8'000'000'000 + 0x80000000ull, model));
  EXPECT_TRUE(modelFitsAvailableMemory(std::numeric_limits<std::uint64_t>::max(), model)) << "clipped, not turned negative";
  EXPECT_EQ(
      memoryWarning("library/gemma4:12b-it-qat", PhysicalMemory::eightGB),
      "library/gemma4:12b-it-qat needs roughly 8.00 GB of memory while it runs; this Mac has 8.59 GB. It may fail to load or run very "
      "slowly.");
  EXPECT_EQ(memoryWarning("gemma4:12b-it-qat", PhysicalMemory::sixteenGB), std::nullopt);
  EXPECT_EQ(memoryWarning("my-own", 1), std::nullopt);
}

TEST(ModelProvisioning, namesAndFigures) {
  EXPECT_TRUE(modelNameMatches("library/gemma4:12b-it-qat", "gemma4:12b-it-qat"));
  EXPECT_TRUE(modelNameMatches("a/b/gemma4", "gemma4:latest"));
  EXPECT_FALSE(modelNameMatches("gemma4", "gemma4:12b-it-qat"));
  EXPECT_EQ(LocalModelStore::manifest("gemma4"), std::nullopt) << "never guessed";
  const auto manifest = *LocalModelStore::manifest("x/gemma4:e2b-it-qat", "https://models.invalid");
  EXPECT_EQ(manifest.projector.url,
            "https://models.invalid/google/gemma-4-E2B-it-qat-q4_0-gguf/resolve/675cff42a74c774d6cb76f76d8eacb49b48c9b93/"
            "gemma-4-E2B-it-mmproj.gguf");
  EXPECT_EQ(known("gemma4:e2b-it-qat")->totalBytes, 3'349'516'256 + 986'833'664);
  const std::pair<std::int64_t, const char*> sizes[] = {
      {999'499'999, "999 MB"}, {1'000'000'000, "1.00 GB"}, {7'150'994'912, "7.15 GB"}, {0, "0 MB"}};
  for (const auto& [bytes, want] : sizes) EXPECT_EQ(humanBytes(bytes), want);
  EXPECT_TRUE(hasSufficientDiskSpace(5, diskHeadroomBytes + 5));
  EXPECT_FALSE(hasSufficientDiskSpace(5, diskHeadroomBytes + 4));
  FakeMachine machine;
  machine.free = 7;
  EXPECT_EQ(availableDiskBytes("/no/such/folder", machine), 7);
  EXPECT_EQ(nearestExistingAncestor("/tmp/no such/folder"), "/tmp");
}

TEST(ModelDownloadHost, resolveAndRedirect) {
  const std::pair<const char*, std::optional<std::string>> hosts[] = {{"https://models.invalid/", "https://models.invalid"},
                                                                      {" http://127.0.0.1:8 ", "http://127.0.0.1:8"},
                                                                      {"http://models.invalid", {}},
                                                                      {"https://user@models.invalid", {}},
                                                                      {"https://models.invalid?x", {}},
                                                                      {"models.invalid", {}},
                                                                      {"file:///etc", {}}};
  for (const auto& [text, want] : hosts) EXPECT_EQ(ModelDownloadHost::resolve({{"AMBITCAP_MODEL_HOST", text}}), want) << text;
  const std::tuple<const char*, const char*, std::optional<std::string>> redirects[] = {
      {"https://a.invalid/x/y?z=1", "w?q=//v", "https://a.invalid/x/w?q=//v"},
      {"https://a.invalid/x", "/w", "https://a.invalid/w"},
      {"https://a.invalid", "//b.invalid/w", "https://b.invalid/w"},
      {"https://a.invalid/x", "https://b.invalid/w?u=http://c", "https://b.invalid/w?u=http://c"},
      {"https://a.invalid/x", "http://b.invalid/", {}},
      {"https://a.invalid/x", "https://127.0.0.1/", {}},
      {"https://a.invalid/x", "", {}},
      {"https://a.invalid/x", "file:///etc/passwd", {}},
      {"http://127.0.0.1:8/x", "y", "http://127.0.0.1:8/y"}};
  for (const auto& [url, location, want] : redirects) EXPECT_EQ(ModelDownloadHost::redirect(url, location), want) << location;
}

TEST(StreamingWriter, contentRangeStart) {
  const std::pair<const char*, std::optional<std::int64_t>> cases[] = {{"bytes 5-9/10", 5},
                                                                       {"bytes 0-0/*", 0},
                                                                       {"bytes */10", {}},
                                                                       {"bytes 9-5/10", {}},
                                                                       {"bytes -5/10", {}},
                                                                       {"5-9/10", {}},
                                                                       {"bytes 5-9", {}},
                                                                       {"bytes 99999999999999999999-1/2", {}},
                                                                       {"", {}}};
  for (const auto& [text, want] : cases) EXPECT_EQ(contentRangeStart(text), want) << text;
}

TEST(InstallProgressText, barAndLines) {
  using Installer = LocalModelInstaller;
  const auto at = [](Installer::Stage stage, std::int64_t done) { return Installer::Progress{std::move(stage), done, 4'000'000'000}; };
  InstallProgressText bar(InstallProgressText::Style::bar), lines(InstallProgressText::Style::lines);
  EXPECT_EQ(bar.next(at(Installer::Checking{"w"}, 0), 0), "[                    ]   0%  0 MB of 4.00 GB  checking w");
  EXPECT_EQ(bar.next(at(Installer::Downloading{"w"}, 1'000'000'000), 1000),
            "[#####               ]  25%  1.00 GB of 4.00 GB  downloading w");
  EXPECT_EQ(bar.next(at(Installer::Downloading{"w"}, 2'000'000'000), 11'000),
            "[##########          ]  50%  2.00 GB of 4.00 GB  downloading w  100.0 MB/s  20 s left");
  EXPECT_EQ(lines.next(at(Installer::Downloading{"w"}, 100), 0), "  0%  0 MB of 4.00 GB  downloading w");
  EXPECT_EQ(lines.next(at(Installer::Downloading{"w"}, 399'999'999), 1), std::nullopt);
  EXPECT_TRUE(lines.next(at(Installer::Downloading{"w"}, 400'000'000), 2));
  EXPECT_EQ(durationText(59), "59 s");
  EXPECT_EQ(durationText(3599), "59 min");
  EXPECT_EQ(durationText(7500), "2 h 5 min");
}

}  // namespace
}  // namespace halvo
