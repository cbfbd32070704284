#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

/// Model requests as files, for whoever is debugging them: off unless asked for, without keys, readable by this account only.
namespace halvo::RequestDump {

inline constexpr std::string_view subdirectory = "model-request-dumps";

/// True when AMBITCAP_DUMP_REQUESTS is exactly "1".
bool isEnabled(const Environment& environment);

struct Request {
  std::string method = "POST";
  std::string endpoint = {};
  std::vector<std::pair<std::string, std::string>> headers = {};
  std::string_view body = {};
  std::int64_t nowMs = 0;
};

/// Writes one request into `directory`/model-request-dumps, a new file named by time and a random id. Of the headers only Content-Type,
/// Accept, Content-Length and User-Agent keep their values, and secrets anywhere are replaced. Makes that one folder when it is missing,
/// never its parent. Never throws: a failure is a line on standard error.
void write(const Request& request, const std::filesystem::path& directory) noexcept;

}  // namespace halvo::RequestDump
