#pragma once

#include <cstddef>
#include <string_view>

/// Where a slow pattern is worth trying: each of its matches begins at one of the places answered here, so trying it there alone finds
/// the same. A place is a byte at or behind `from`; `npos` when there is none left.
namespace halvo::IdentifierCandidates {

/// The next signed web token (three dotted parts, the first two beginning "eyJ"). The pattern alone runs over a long line of
/// "eyJ-eyJ-eyJ-" once from each of them.
std::size_t nextWebToken(std::string_view text, std::size_t from);

/// The next run of at least four digits, of any script: where a card number can begin.
std::size_t nextDigitGroup(std::string_view text, std::size_t from);

/// The next run of three digits with a hyphen behind it: where an SSN can begin.
std::size_t nextAreaNumber(std::string_view text, std::size_t from);

}  // namespace halvo::IdentifierCandidates
