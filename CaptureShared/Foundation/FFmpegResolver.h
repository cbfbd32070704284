#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/ExecutablePath.h"

/// Where the ffmpeg program is.
namespace halvo::FFmpegResolver {

class NotFound : public std::runtime_error {
 public:
  NotFound() : std::runtime_error("ffmpeg not found — install it or set AMBITCAP_FFMPEG") {}
};

/// Looked through in this order when AMBITCAP_FFMPEG is not set.
inline constexpr std::array usualPlaces{"/opt/homebrew/bin/ffmpeg", "/usr/local/bin/ffmpeg", "/usr/bin/ffmpeg"};

/// AMBITCAP_FFMPEG alone when it is not blank, else the first of the usual places that can be run. Throws `NotFound`.
std::filesystem::path resolve(const Environment& environment,
                              const std::function<bool(const std::filesystem::path&)>& isExecutable = ExecutablePath::isExecutableFile);

}  // namespace halvo::FFmpegResolver
