#include "AmbitudeCore/Folds/OwnApplications.h"

#include <algorithm>
#include <array>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::OwnApplications {
namespace {
constexpr std::array<std::string_view, 5> names{"Ambitude", "AmbitudeApp", "Lark", "Shearling", "Halvo"};

bool isASCII(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}
char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
}  // namespace

bool contains(std::string_view app) {
  // Asked for every judgment of a day; nearly every name is plain ASCII and needs no folding.
  if (isASCII(app))
    return std::ranges::any_of(names, [&](std::string_view name) { return std::ranges::equal(app, name, {}, lowered, lowered); });
  return std::ranges::any_of(names, [&](std::string_view name) { return Text::equalsIgnoringCase(app, name); });
}

}  // namespace halvo::OwnApplications
