#include "CaptureShared/Foundation/FFmpegResolver.h"

#include "CaptureShared/Foundation/Text.h"

namespace halvo::FFmpegResolver {

std::filesystem::path resolve(const Environment& environment, const std::function<bool(const std::filesystem::path&)>& isExecutable) {
  if (const auto chosen = value(environment, "AMBITCAP_FFMPEG"); chosen && !Text::isBlank(*chosen)) {
    if (isExecutable(*chosen)) return *chosen;
    throw NotFound();
  }
  for (const std::filesystem::path place : usualPlaces)
    if (isExecutable(place)) return place;
  throw NotFound();
}

}  // namespace halvo::FFmpegResolver
