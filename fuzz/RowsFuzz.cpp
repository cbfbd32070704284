#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/LineSplitter.h"

/// Lines are the same wherever a read ended; a judgment that decodes survives a round trip.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> whole, halves;
  halvo::LineSplitter atOnce, inHalves;
  atOnce.feed(bytes, [&](std::string_view line) { whole.emplace_back(line); });
  inHalves.feed(bytes.substr(0, size / 2), [&](std::string_view line) { halves.emplace_back(line); });
  inHalves.feed(bytes.substr(size / 2), [&](std::string_view line) { halves.emplace_back(line); });
  if (whole != halves || atOnce.pendingBytes() != inHalves.pendingBytes()) std::abort();
  for (const auto& line : whole) {
    halvo::EventLogReader::decode(line);
    if (const auto tick = halvo::ClassifierTick::decode(line); tick && halvo::ClassifierTick::decode(tick->encode()) != tick) std::abort();
  }
  return 0;
}
