#pragma once

#include <map>
#include <string>

#include "CaptureShared/Privacy/SensitiveIdentifierKind.h"

namespace halvo {

/// How many pieces of each kind were taken out of a text. Carries counts only, never a value.
struct RedactionReport {
  std::map<SensitiveIdentifierKind, int> counts = {};

  void count(SensitiveIdentifierKind kind, int times = 1) { counts[kind] += times; }
  bool isEmpty() const { return total() == 0; }
  int total() const;
  void merge(const RedactionReport& other);
  RedactionReport merging(const RedactionReport& other) const;
  /// The kinds that occurred, in the order of the enumeration: "ssn 1, card_number 2"; empty when there are none.
  std::string summary() const;

  bool operator==(const RedactionReport&) const = default;
};

}  // namespace halvo
