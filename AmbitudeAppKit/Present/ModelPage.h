#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Stores/ModelShelf.h"
#include "CaptureShared/Provisioning/InstallProgressText.h"

namespace halvo {

/// The local models there are, each with what it asks of this machine and how much of it is here.
struct ModelPage {
  struct Row {
    std::string name = {};
    std::string role = {};   ///< what it is for
    std::string size = {};   ///< of its download
    std::string fit = {};    ///< "fits this machine"
    std::string state = {};  ///< "ready", "here, not checked", "not downloaded", "1.20 GB still to come"
    std::string warning = {};  ///< of one that is too large for this machine
    bool isConfigured = false, isRecommended = false;
    bool isWhole = false;    ///< both files are here
    bool isBegun = false;    ///< something of it is here
    bool operator==(const Row&) const = default;
  };
  std::vector<Row> rows = {};
  std::string unknownConfigured = {};  ///< words for a configured model that there is no download for; else empty
  bool operator==(const ModelPage&) const = default;

  /// Reads names, sizes and stamps; no file.
  static ModelPage of(const ModelShelf& shelf);

  /// How far an install or a check is.
  struct Progress {
    int permille = 0;
    std::string words = {};  ///< " 42%  3.00 GB of 7.15 GB  downloading ...  12.3 MB/s  5 min left"
    bool operator==(const Progress&) const = default;
  };
  static Progress progress(InstallProgressText& text, const LocalModelInstaller::Progress& progress, std::int64_t nowMs);
};

}  // namespace halvo
