#pragma once

#include <string>
#include <string_view>

/// What tells a number of a kind from digits that merely look like one. Each takes a value as it was written, with its separators;
/// digits of any script count by their decimal value. Pure; never throws.
namespace halvo::IdentifierChecks {

/// The decimal digits of a text as ASCII, everything else left out.
std::string digits(std::string_view text);

/// Nine digits; area not 000, 666 or 9xx, group not 00, serial not 0000: the numbers that the issuer never gives out.
bool isSSN(std::string_view value);
/// Nine digits that begin with 9, the group 50 to 65, 70 to 88, 90 to 92 or 94 to 99.
bool isITIN(std::string_view value);
bool isSSNOrITIN(std::string_view value);

/// A bank's routing number: the first two digits a Federal Reserve district, weights 3, 7, 1 summing to a multiple of 10, not one digit
/// nine times.
bool isRoutingNumber(std::string_view value);

/// Six to 17 digits, not shaped as a date (2024-01-15).
bool isAccountNumber(std::string_view value);

/// A brand's prefix with a length that the brand has, and the Luhn sum.
bool isCardNumber(std::string_view value);

/// 15 to 34 characters once blanks are gone, and the check digits right.
bool isIBAN(std::string_view value);

}  // namespace halvo::IdentifierChecks
