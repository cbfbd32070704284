#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// What a redacted piece of text was.
enum class SensitiveIdentifierKind { ssn, cardNumber, bankRoutingNumber, bankAccountNumber, credential };

template <>
struct RawValues<SensitiveIdentifierKind> {
  static constexpr std::array table{std::pair{SensitiveIdentifierKind::ssn, "ssn"},
                                    std::pair{SensitiveIdentifierKind::cardNumber, "card_number"},
                                    std::pair{SensitiveIdentifierKind::bankRoutingNumber, "bank_routing_number"},
                                    std::pair{SensitiveIdentifierKind::bankAccountNumber, "bank_account_number"},
                                    std::pair{SensitiveIdentifierKind::credential, "credential"}};
};

/// What stands in its place: "[redacted SSN]" and the like. No pattern finds anything in a token.
constexpr std::string_view token(SensitiveIdentifierKind kind) {
  switch (kind) {
    case SensitiveIdentifierKind::ssn: return "[redacted SSN]";
    case SensitiveIdentifierKind::cardNumber: return "[redacted card number]";
    case SensitiveIdentifierKind::bankRoutingNumber: return "[redacted routing number]";
    case SensitiveIdentifierKind::bankAccountNumber: return "[redacted bank account number]";
    case SensitiveIdentifierKind::credential: return "[redacted credential]";
  }
  return {};
}

}  // namespace halvo
