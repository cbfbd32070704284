#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace halvo {

/// What a text of ours is in the person's language; the text itself where it has no translation. Called from any thread.
using Translator = std::string (*)(const std::string& source);

/// To be set before the first word is shown. Only what has a person before it sets one: logs, files and prompts stay in one language.
void setTranslator(Translator translator);

/// A text for a person's eyes; as it is written in the code while no translator is set.
std::string tr(std::string_view source);

/// The same for a format of fmt's, whose translation may take the arguments in another order ("{1} of {0}"). One that doesn't fit them is
/// passed over for the source.
template <class First, class... Rest>
std::string tr(fmt::format_string<First, Rest...> source, First&& first, Rest&&... rest) {
  const fmt::string_view format = source;
  const auto translated = tr(std::string_view(format.data(), format.size()));
  try {
    return fmt::vformat(translated, fmt::make_format_args(first, rest...));
  } catch (const fmt::format_error&) {
    return fmt::vformat(format, fmt::make_format_args(first, rest...));
  }
}

/// Marks a text of a table that goes through `tr` where it is shown: for the programs that collect the texts to be translated.
constexpr const char* trMark(const char* source) { return source; }

}  // namespace halvo
