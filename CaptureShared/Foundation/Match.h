#pragma once

#include <utility>
#include <variant>

namespace halvo {

template <class... Fs>
struct Overloaded : Fs... {
  using Fs::operator()...;
};
template <class... Fs>
Overloaded(Fs...) -> Overloaded<Fs...>;

/// Visits a variant with one lambda a case. Give each case its own lambda and no catch-all, so that a new case fails to
/// compile wherever it matters.
template <class V, class... Fs>
decltype(auto) match(V&& value, Fs&&... cases) {
  return std::visit(Overloaded{std::forward<Fs>(cases)...}, std::forward<V>(value));
}

}  // namespace halvo
