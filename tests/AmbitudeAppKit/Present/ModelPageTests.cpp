#include <gtest/gtest.h>

#include "AmbitudeAppKit/Present/ModelPage.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "Platform/Testing/FakePlatform.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

TEST(ModelPage, saysOfEachModelHowItFitsAndHowMuchIsHere) {
  const test::TemporaryFolder home;
  DataPaths::overrideConfigURL(home.path() / "config.json");
  FakeMachine machine;
  machine.memory = std::uint64_t{8} << 30;
  const auto transport = HTTPTransportRouter::standard();
  const ModelShelf shelf(
      {.environment = {{"HOME", home.path().string()}, {"AMBITCHECK_MODEL", "mystery"}}, .machine = machine, .transport = *transport});
  // Files of the right size and no bytes.
  const auto lay = [&](const LocalModelStore::Artifact& artifact, const std::string& suffix, std::int64_t bytes) {
    const auto file = shelf.directory() / (artifact.fileName + suffix);
    std::filesystem::create_directories(shelf.directory());
    std::ofstream(file).close();
    std::filesystem::resize_file(file, static_cast<std::uintmax_t>(bytes));
  };
  const auto mid = *LocalModelStore::manifest("gemma4:e4b-it-qat"), small = *LocalModelStore::manifest("gemma4:e2b-it-qat");
  lay(mid.weights, std::string(LocalModelInstaller::partialSuffix), 1'000'000'000);
  lay(small.weights, "", small.weights.bytes);
  lay(small.projector, "", small.projector.bytes);

  const auto page = ModelPage::of(shelf);
  ASSERT_EQ(page.rows.size(), 3u);
  const auto &full = page.rows[0], &begun = page.rows[1], &whole = page.rows[2];
  EXPECT_EQ(full.size + "; " + full.fit + "; " + full.state, "7.15 GB; too large for this machine; not downloaded");
  EXPECT_NE(full.warning.find("needs roughly"), std::string::npos);
  EXPECT_FALSE(full.isBegun || full.isWhole || full.isConfigured);
  EXPECT_EQ(begun.state, "5.15 GB still to come");
  EXPECT_TRUE(begun.isBegun && !begun.isWhole);
  EXPECT_EQ(whole.state, "here, not checked");
  EXPECT_TRUE(whole.isWhole && whole.isRecommended && whole.warning.empty());
  EXPECT_EQ(page.unknownConfigured, "there's no download for mystery (it is the one configured)");

  LocalModelStore::recordVerified(small.weights, shelf.directory());
  LocalModelStore::recordVerified(small.projector, shelf.directory());
  EXPECT_EQ(ModelPage::of(shelf).rows[2].state, "ready");

  InstallProgressText text(InstallProgressText::Style::words);
  const LocalModelInstaller::Stage loading = LocalModelInstaller::Downloading{"w.gguf"};
  EXPECT_EQ(ModelPage::progress(text, {loading, 0, 4'000'000'000}, 0).permille, 0);
  EXPECT_EQ(ModelPage::progress(text, {loading, 1'000'000'000, 4'000'000'000}, 10'000),
            (ModelPage::Progress{250, "25%  1.00 GB of 4.00 GB  downloading w.gguf  100.0 MB/s  30 s left"}));
  DataPaths::overrideConfigURL(std::nullopt);
}

}  // namespace
}  // namespace halvo
