#pragma once

#include <map>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::test {

/// "B=openrouter KEY=k" as an environment, so that a case fits on a line.
inline Environment env(std::string_view text) {
  static const std::map<std::string_view, const char*> keys{
      {"B", "AMBITCAP_MODEL_BACKEND"},         {"KEY", "OPENROUTER_API_KEY"},           {"MODEL", "AMBITCAP_MODEL"},
      {"ENDPOINT", "AMBITCAP_MODEL_ENDPOINT"}, {"PIN", "AMBITCAP_MODEL_PROVIDER"},      {"FALLBACK", "AMBITCAP_MODEL_FALLBACK"},
      {"EFFORT", "AMBITCAP_REASONING_EFFORT"}, {"OFFLINE", "AMBITCAP_OFFLINE_MODE"},    {"PROXY", "AMBITCAP_PROXY_URL"},
      {"SPARE", "AMBITCAP_FALLBACK_MODEL"},    {"SMALL", "AMBITCAP_LOCAL_CHECK_MODEL"}, {"CHECK", "AMBITCHECK_MODEL"}};
  Environment environment;
  for (const auto word : Text::split(text, ' '))
    if (const auto at = word.find('='); at != word.npos) environment[keys.at(word.substr(0, at))] = word.substr(at + 1);
  return environment;
}

}  // namespace halvo::test
