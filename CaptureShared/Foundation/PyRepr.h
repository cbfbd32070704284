#pragma once

#include <string>
#include <string_view>

namespace halvo::PyRepr {

/// The text as a Python interpreter prints a string value: single quotes unless only double quotes avoid escaping.
/// Bytes that are not UTF-8 count as U+FFFD.
std::string string(std::string_view text);

/// "{'ocr_text': <repr>, 'description': <repr>}".
std::string windowContentDict(std::string_view ocrText, std::string_view description);

}  // namespace halvo::PyRepr
