#include "AmbitudeCore/Coach/CompiledRegexCache.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace halvo::CompiledRegexCache {

std::shared_ptr<const Regex> get(std::string_view pattern, Regex::Flag flags) {
  static std::mutex mutex;
  static std::map<std::pair<std::string, Regex::Flag>, std::shared_ptr<const Regex>> compiled;
  const std::lock_guard hold(mutex);
  auto& entry = compiled[{std::string(pattern), flags}];
  if (!entry) entry = std::make_shared<const Regex>(pattern, flags);
  return entry;
}

}  // namespace halvo::CompiledRegexCache
