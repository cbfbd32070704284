#include "AmbitudeAppKit/Stores/DiagnosticsReport.h"

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

#include "AmbitudeAppKit/AgentControl/BackgroundAgents.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::DiagnosticsReport {

namespace {

/// What follows the time, if a line has one. A part that could hold a path, a title, a reason or a model's words is in none of them: numbers, our own
/// names and fixed words only. What was judged and why the coach held back is left out too: it tells of the person.
constexpr std::string_view shapes[] = {
    R"(Signals samples every \d+ ms)",
    R"(Capturer records at \d+ frames a second)",
    R"(Supervisor keeps Signals and Capturer running)",
    R"(recording nothing: another Supervisor records to this data root; this one ends)",
    R"((?:Signals|Capturer|Supervisor) ends)",
    R"((?:Signals|Capturer) runs)",
    R"((?:Signals|Capturer) ended with -?\d+; started again in [\d.e+]+ s)",
    R"(recording again)",
    R"(Retention: \d+ file\(s\) deleted, \d+ bytes freed, \d+ failed)",
    R"(classifier started: model [\w.:-]+, a look every [\d.]+ s, judgments \d+ to \d+ s apart)",
    R"(classifier stopped)",
    R"(the local model answers again)",
    R"(layer3: another CoachDriver runs on this data root; this one ends)",
    R"(layer3: the coach ends)",
    R"(layer3: a call was given up because they said something)",
    R"(layer3 (?:gate|coach) usage: none reported \(expected on the local model; )"
    R"(on openrouter it means the response carried no usage block\))",
    R"(layer3 (?:gate|coach) usage: \d+ call\(s\), prompt \d+ \((?:\d+ cached, [\d.]+% hit|no cache figure reported)\), completion \d+, )"
    R"((?:reasoning \d+|thinking \d+ chars|NO REASONING TRACE), (?:cost \$[\d.]+|cost not reported))"
    // A provider's name and a model's, which may have its maker's in front.
    R"((?:, via [\w.-]+(?: [\w.-]+)?)?(?:, [\w.:-]+(?:/[\w.:-]+)?)?(?:, SERVED BY FALLBACK)?)",
    R"(Vision OCR timed out after \d+s — abandoning the request and judging without OCR text)",
    R"(discarded negative/same-day-mismatched estimate: -?[\d.]+)",
    R"(  facts: \d+, lessons: \d+)",
    R"(\d+ digest\(s\) on disk, \d+ period\(s\) pending)",
    R"(standing memory: \d+ thread\(s\), \d+ fact\(s\), \d+ lesson\(s\))",
    R"(no new digests -- standing memory is SALVAGED, regenerating to repair it)",
    R"(\[lark\] #987: video archive key ready)",
    R"((?:events|ticks): skipped \d+ complete line\(s\) that did not decode \(same as the full reader; counted here so it is not silent\))",
};

const Regex& anyShape() {
  static const Regex whole = [] {
    std::string pattern;
    for (const auto shape : shapes) pattern += (pattern.empty() ? "" : "|") + std::string(shape);
    return Regex(R"(^(?:\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ )?(?:)" + pattern + R"()\z)");
  }();
  return whole;
}

}  // namespace

bool isMechanical(std::string_view line) {
  try {
    return anyShape().matches(line);
  } catch (const RegexLimitExceeded&) {
    return false;
  }
}

std::vector<std::string> programs(std::span<const BackgroundAgentState> states) {
  std::vector<std::string> lines;
  for (const auto& state : states) lines.push_back(fmt::format("{}: {}", facts(state.agent).name, describe(state.runState)));
  return lines;
}

std::string render(const Facts& facts, std::span<const Log> logs, std::size_t linesPerLog) {
  auto text = fmt::format("Halvo diagnostics, {}\nversion {}\n{}\n", facts.writtenAt, facts.version, facts.system);
  for (const auto& program : facts.programs) text += program + "\n";
  for (const auto& log : logs) {
    std::vector<std::string_view> kept;
    std::size_t leftOut = 0;
    for (const auto line : Text::split(log.text, '\n')) {
      if (line.empty()) continue;
      if (isMechanical(line))
        kept.push_back(line);
      else
        ++leftOut;
    }
    text += fmt::format("\n{}: {} line(s) of a known shape, {} left out\n", log.name, kept.size(), leftOut);
    for (auto i = kept.size() > linesPerLog ? kept.size() - linesPerLog : 0; i < kept.size(); ++i) text += "  " + std::string(kept[i]) + "\n";
  }
  return text;
}

std::vector<Log> logsIn(const std::filesystem::path& folder) {
  constexpr std::int64_t atMost = 256 * 1024;
  std::vector<Log> logs;
  std::error_code failed, ignored;
  std::filesystem::recursive_directory_iterator item(folder, std::filesystem::directory_options::skip_permission_denied, failed), end;
  for (; !failed && item != end; item.increment(failed)) {
    const auto& entry = *item;
    if (entry.path().extension() != ".log" || !entry.is_regular_file(ignored)) continue;
    try {
      const auto file = FileHandle::openForRead(entry.path());
      const auto size = FileIdentity::of(file).size;
      const auto from = std::max<std::int64_t>(0, size - atMost);
      auto bytes = file.readAt(static_cast<std::uint64_t>(from), static_cast<std::size_t>(size - from));
      if (from > 0) bytes.erase(0, bytes.find('\n') == std::string::npos ? bytes.size() : bytes.find('\n') + 1);
      logs.push_back({entry.path().filename().string(), std::move(bytes)});
    } catch (const std::system_error&) {
      continue;
    }
  }
  std::ranges::sort(logs, {}, &Log::name);
  return logs;
}

}  // namespace halvo::DiagnosticsReport
