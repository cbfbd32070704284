#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Records/StandingMemory.h"

namespace halvo {

/// Standing memory as those who speak read it, wipes honoured. Files are read again only when they changed: a look costs two `stat`s.
class StandingMemoryReader {
 public:
  /// Bytes of facts and lessons that are handed out: a quarter of the 8,192 tokens that a gate's whole message may take, at three bytes a
  /// token, with something to spare. Of a memory that was left unorganized the newest stay.
  static constexpr std::size_t budgetBytes = 6'000;

  StandingMemoryReader(std::filesystem::path dataRoot, LogSink log) : dataRoot_(std::move(dataRoot)), log_(std::move(log)) {}

  struct Reading {
    std::optional<StandingMemory> memory = {};
    std::optional<std::int64_t> wipeAtMs = {};  ///< for what else is to be forgotten
  };
  /// Never throws: a file that can't be read is told once, and what it holds is left out until it can be. While the wipe log can't be read
  /// nothing is handed out: what was to be forgotten must not come back.
  const Reading& read();

 private:
  struct Seen {
    std::optional<FileIdentity> standing = {}, wipes = {};
    bool operator==(const Seen&) const = default;
  };
  Reading load();

  std::filesystem::path dataRoot_;
  LogSink log_;
  std::optional<Seen> seen_;
  Reading reading_;
  std::string told_;
};

}  // namespace halvo
