#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

/// One run of ffmpeg that may be fed on its standard input.
namespace halvo::FFmpegRun {

/// The next piece of the input, valid until the next call; absent at its end. It may throw.
using Feed = std::function<std::optional<std::string_view>()>;

struct Outcome {
  int exitStatus = 0;                             ///< the exit code, or 128 + signal
  std::string standardError = {};                 ///< the last 64 KiB of it
  std::optional<std::string> feedFailure = {};    ///< why not all of the input was delivered: what the feed threw, or the pipe's error
};
/// Runs it to its end; a failed feed closes its input and does not stop it. An empty feed gives it an empty input. Throws
/// `std::system_error` when it can't be started, and `Cancelled` when the token stops, after ending it.
Outcome run(const std::filesystem::path& ffmpeg, const std::vector<std::string>& arguments, const Feed& feed,
            const std::stop_token& stop = {});

}  // namespace halvo::FFmpegRun
