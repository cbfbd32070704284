#include "CaptureShared/Privacy/RedactionReport.h"

#include <fmt/format.h>

namespace halvo {

int RedactionReport::total() const {
  int sum = 0;
  for (const auto& [kind, times] : counts) sum += times;
  return sum;
}

void RedactionReport::merge(const RedactionReport& other) {
  for (const auto& [kind, times] : other.counts) count(kind, times);
}

RedactionReport RedactionReport::merging(const RedactionReport& other) const {
  RedactionReport both = *this;
  both.merge(other);
  return both;
}

std::string RedactionReport::summary() const {
  std::string line;
  for (const auto& [kind, times] : counts) {
    if (times == 0) continue;
    if (!line.empty()) line += ", ";
    line += fmt::format("{} {}", rawValue(kind), times);
  }
  return line;
}

}  // namespace halvo
