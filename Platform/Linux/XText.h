#pragma once

#include <string>
#include <string_view>

/// Text properties of X windows as UTF-8. Whatever a program put there comes out valid.
namespace halvo::XText {

/// A text property: cut at its first NUL; Latin-1 (what the type STRING means) when it isn't UTF-8, which many programs store there.
/// `isUTF8` is for the type UTF8_STRING: malformed bytes become U+FFFD.
std::string decoded(std::string_view bytes, bool isUTF8);

/// The class half of WM_CLASS ("instance NUL class NUL"); the instance when the class is blank; empty when both are.
std::string className(std::string_view wmClass);

}  // namespace halvo::XText
