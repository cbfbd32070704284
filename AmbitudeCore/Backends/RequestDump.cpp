#include "AmbitudeCore/Backends/RequestDump.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UUID.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo::RequestDump {
namespace {

std::string reason(const std::exception& error) {
  const auto* system = dynamic_cast<const std::system_error*>(&error);
  return system ? errnoText(system->code().value()) : error.what();
}

std::string fileName(std::int64_t nowMs) {
  const auto at = Calendar::utc().fields(nowMs);
  return fmt::format("{:04}-{:02}-{:02}T{:02}-{:02}-{:02}-{:03}Z-{}.http", at.year, at.month, at.day, at.hour, at.minute, at.second,
                     at.millisecond, newUUID());
}

/// An allow-list: a header nobody thought of is more likely to carry a credential than to help anyone.
bool mayKeepValue(std::string_view name) {
  constexpr std::array kept{"Content-Type", "Accept", "Content-Length", "User-Agent"};
  return std::any_of(kept.begin(), kept.end(), [&](std::string_view one) { return Text::equalsIgnoringCase(one, name); });
}

std::string content(const Request& request) {
  auto text = fmt::format("{} {} HTTP/1.1\r\n", request.method, request.endpoint);
  for (const auto& [name, value] : request.headers)
    text += fmt::format("{}: {}\r\n", name, mayKeepValue(name) ? std::string_view(value) : SecretRedaction::token);
  text += "\r\n";
  text += request.body;
  return SecretRedaction::redact(text);
}

}  // namespace

bool isEnabled(const Environment& environment) { return value(environment, "AMBITCAP_DUMP_REQUESTS") == "1"; }

void write(const Request& request, const std::filesystem::path& directory) noexcept try {
  const auto folder = directory / subdirectory;
  try {
    makePrivateFolder(folder);
  } catch (const std::exception& error) {
    fmt::print(stderr, "request dump: could not create {}: {}\n", folder.native(), reason(error));
    return;
  }
  const auto file = folder / fileName(request.nowMs);
  try {
    writeFileAtomically(file, content(request));
  } catch (const std::exception& error) {
    fmt::print(stderr, "request dump: failed to write {}: {}\n", file.native(), reason(error));
  }
} catch (const std::exception&) {
  std::fputs("request dump: failed\n", stderr);
}

}  // namespace halvo::RequestDump
