#pragma once

#include <string>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// The coach's character, in the wording for a remote model and in the one for a local model. Each is one stable text, so that a server's
/// prompt cache keeps it.
namespace Layer3Prompt {

enum class Variant { online, local };

const std::string& text(Variant variant);

}  // namespace Layer3Prompt

template <>
struct RawValues<Layer3Prompt::Variant> {
  static constexpr std::array table{std::pair{Layer3Prompt::Variant::online, "online"}, std::pair{Layer3Prompt::Variant::local, "local"}};
};

}  // namespace halvo
