#pragma once

#include <optional>
#include <string>

#include "CaptureShared/Foundation/Environment.h"

/// Where the model files are downloaded from.
namespace halvo::ModelDownloadHost {

/// Takes the place of the host that was built in. Read from the environment only, never from config.json: the file can't send a download
/// elsewhere.
inline constexpr std::string_view envVar = "AMBITCAP_MODEL_HOST";

/// The base URL, without a slash at its end; absent when none is named or it is refused. Only https is taken, or plain http on this
/// machine.
std::optional<std::string> resolve(const Environment& environment);

/// Where a redirect leads: `location` as an answer to `url` carries it, whole or relative. Absent when it can't be read, or would leave
/// https or lead a remote server's answer to this machine.
std::optional<std::string> redirect(std::string_view url, std::string_view location);

}  // namespace halvo::ModelDownloadHost
