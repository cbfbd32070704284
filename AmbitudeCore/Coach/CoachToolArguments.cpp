#include "AmbitudeCore/Coach/CoachToolArguments.h"

#include <algorithm>
#include <array>
#include <set>

#include <unicode/uchar.h>

#include "AmbitudeCore/Coach/CoachTools.h"
#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Records/TaskMinutes.h"

namespace halvo {

namespace {

/// A string argument, trimmed; empty when it is missing or anything else.
std::string textAt(const JSONValue& arguments, std::string_view key) {
  const auto* value = arguments.find(key);
  return value && value->stringValue() ? std::string(Text::trim(*value->stringValue())) : std::string();
}

}  // namespace

std::optional<WriteCurrentIntentionArguments> WriteCurrentIntentionArguments::parse(const JSONValue& arguments) {
  WriteCurrentIntentionArguments read{.notes = textAt(arguments, "notes")};
  // The older spelling of the tool called them "task".
  if (read.notes.empty()) read.notes = textAt(arguments, "task");
  if (read.notes.empty()) return std::nullopt;
  const auto* horizon = arguments.find("horizon_minutes");
  if (horizon && !horizon->isNull()) {
    read.horizonMinutes = cleanTaskMinutes(horizon);
    if (!read.horizonMinutes) return std::nullopt;
  }
  return read;
}

std::optional<CorrectJudgmentArguments> CorrectJudgmentArguments::parse(const JSONValue& arguments) {
  CorrectJudgmentArguments read{.app = textAt(arguments, "app"), .project = textAt(arguments, "project")};
  return read.app.empty() || read.project.empty() ? std::nullopt : std::optional(std::move(read));
}

RememberCorrectionArguments RememberCorrectionArguments::parse(const JSONValue& arguments) {
  return {.correction = textAt(arguments, "correction"),
          .lasts = fromRawValue<CoachCorrection::Lasts>(textAt(arguments, "lasts")),
          .scope = fromRawValue<CoachCorrection::Scope>(textAt(arguments, "scope"))};
}

ProposeOptionsArguments ProposeOptionsArguments::parse(const JSONValue& arguments) {
  ProposeOptionsArguments read{
      .setting = textAt(arguments, "setting"), .title = textAt(arguments, "title"), .message = textAt(arguments, "message")};
  const auto* options = arguments.find("options");
  if (!options || !options->arrayValue()) return read;
  std::set<std::string> seen;
  for (const auto& entry : *options->arrayValue()) {
    Option option{.id = textAt(entry, "id"), .label = textAt(entry, "label")};
    if (option.id.empty() || option.label.empty() || !seen.insert(option.id).second) continue;
    if (auto hint = textAt(entry, "hint"); !hint.empty()) option.hint = std::move(hint);
    read.options.push_back(std::move(option));
  }
  return read;
}

namespace CorrectJudgmentGuard {

bool isBareAnswer(std::string_view text) {
  static constexpr std::array<std::string_view, 37> answers{
      "yes",       "yeah",    "yep",          "yup",           "ya",         "y",          "sure",       "ok",
      "okay",      "correct", "right",        "true",          "exactly",    "no",         "nope",       "nah",
      "n",         "wrong",   "not",          "false",         "k",          "absolutely", "definitely", "please",
      "mhm",       "uh huh",  "it is",        "i guess",       "i think so", "it's not",   "it isn't",   "it does",
      "of course", "indeed",  "that's right", "that is right", "thats right"};
  // Letters, digits and apostrophes count; a comma, a dash or a thumb adds nothing to a yes.
  std::string plain;
  const auto lowered = Text::lower(text);
  for (std::size_t at = 0; at < lowered.size();) {
    const char32_t c = Text::nextCodePoint(lowered, at);
    if (c == U'’' || c == U'\'')
      plain += '\'';
    else if (u_isalnum(static_cast<UChar32>(c)))
      Text::appendCodePoint(plain, c);
    else if (!plain.empty() && plain.back() != ' ')
      plain += ' ';
  }
  // "yes yes", "yeah sure", "ok, right": nothing but such words, in any number.
  std::string_view rest = Text::trim(plain);
  if (rest.empty()) return false;
  while (!rest.empty()) {
    const auto word = std::find_if(answers.rbegin(), answers.rend(), [&](std::string_view answer) {
      return rest.starts_with(answer) && (rest.size() == answer.size() || rest[answer.size()] == ' ');
    });
    if (word == answers.rend()) return false;
    rest = Text::trim(rest.substr(word->size()));
  }
  return true;
}

Verdict verdict(const std::vector<ChatMessage>& conversation) {
  static const Regex ownWords(R"(^\[\d{1,2}:\d{2}\] ([\s\S]*)$)");
  for (auto message = conversation.rbegin(); message != conversation.rend(); ++message) {
    if (message->role != ChatRole::user) continue;
    const auto words = ownWords.find(message->content);
    if (!words) continue;  // a notice or a gap line is not their voice
    if (!isBareAnswer(words->text(message->content, 1).value_or(""))) return Verdict::allowed;
    const auto before = std::find_if(message, conversation.rend(), [](const ChatMessage& m) { return m.role == ChatRole::assistant; });
    const bool askedThem = before != conversation.rend() && before->content.find('?') != std::string::npos;
    return askedThem ? Verdict::bareAnswerToOwnQuestion : Verdict::allowed;
  }
  // Nothing they said is in sight, so they stated no link either.
  return Verdict::bareAnswerToOwnQuestion;
}

}  // namespace CorrectJudgmentGuard

std::string CoachToolCallDisplay::line(const ToolCall& call) {
  struct Phrase {
    std::string_view name, words, argument;
  };
  static constexpr std::array<Phrase, 9> phrases{{{"write_current_intention", "recorded your intention", "notes"},
                                                  {"correct_judgment", "noted what an app is for", "app"},
                                                  {"go_quiet", "going quiet", "minutes"},
                                                  {"remember_correction", "remembered what you said", "correction"},
                                                  {"propose_options", "offered you options", "title"},
                                                  {"do_not_disturb", "holding messages", "minutes"},
                                                  {"open_ui", "opened the conversation", ""},
                                                  {"close_ui", "stepped back", ""},
                                                  {"check_ui_state", "looked at the clock", ""}}};
  const auto name = CoachTools::canonicalToolName(call.name);
  const auto phrase = std::find_if(phrases.begin(), phrases.end(), [&](const Phrase& known) { return known.name == name; });
  if (phrase == phrases.end()) return "used a tool";
  std::string text(phrase->words);
  const auto* argument = phrase->argument.empty() ? nullptr : call.arguments.find(phrase->argument);
  if (!argument) return text;
  if (const auto* words = argument->stringValue()) return text + ": " + Text::capped(Text::newlinesToBlanks(*words), argumentCap);
  if (argument->numberValue()) return text + ": " + argument->dump() + " min";
  return text;
}

}  // namespace halvo
