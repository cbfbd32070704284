#include "CaptureShared/Foundation/Environment.h"

#include <unistd.h>

namespace halvo {

Environment processEnvironment() {
  Environment environment;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text(*entry);
    if (const auto equals = text.find('='); equals != std::string_view::npos)
      environment.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return environment;
}

std::optional<std::string> value(const Environment& environment, std::string_view key) {
  const auto found = environment.find(key);
  return found == environment.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace halvo
