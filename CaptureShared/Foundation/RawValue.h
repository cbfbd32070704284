#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace halvo {

/// The texts of a string-valued enumeration, in declaration order. Specialise it beside the enumeration:
///   template <> struct RawValues<Regime> { static constexpr std::array table{std::pair{Regime::away, "away"}, ...}; };
template <class E>
struct RawValues;

/// The text of a case as it stands on disk and on the wire.
template <class E>
constexpr std::string_view rawValue(E value) {
  for (const auto& [enumerator, text] : RawValues<E>::table)
    if (enumerator == value) return text;
  return {};
}

/// The case with exactly this text; absent for any other text.
template <class E>
constexpr std::optional<E> fromRawValue(std::string_view text) {
  for (const auto& [enumerator, raw] : RawValues<E>::table)
    if (text == raw) return enumerator;
  return std::nullopt;
}

}  // namespace halvo
