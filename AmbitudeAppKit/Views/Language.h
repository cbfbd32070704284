#pragma once

namespace halvo::Language {

/// From here on Qt's translators are asked for the words that are not made by widgets too, under the context "Halvo". Needs the
/// application, and comes before its first word.
void install();

}  // namespace halvo::Language
