#include "AmbitudeCore/Backends/SessionDigest.h"

#include "CaptureShared/Foundation/Digest.h"

namespace halvo::SessionDigest {

std::string of(std::string_view text) { return Digest::sha256Hex(text).substr(0, 32); }

}  // namespace halvo::SessionDigest
