#include "CaptureShared/EventLog/EventLogReader.h"

#include <algorithm>

#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONParse.h"

namespace halvo {

namespace {

template <class Row, class Decode>
std::vector<Row> decodeLines(std::string_view text, Decode&& decode) {
  std::vector<Row> rows;
  LineSplitter lines;
  auto take = [&](std::string_view line) {
    if (auto row = decode(line)) rows.push_back(std::move(*row));
  };
  lines.feed(text, take);
  // A text that ends without a newline has a last line all the same.
  if (lines.pendingBytes()) take(lines.pending());
  return rows;
}

}  // namespace

namespace EventLogReader {

std::optional<EventLogEvent> decode(std::string_view line) {
  thread_local simdjson::dom::parser parser;
  simdjson::dom::object row;
  std::optional<EventLogEvent> result;
  if (parser.parse(line.data(), line.size()).get_object().get(row)) return result;
  auto& event = result.emplace();
  bool hasTime = false, hasKind = false, hasType = false, hasSource = false;
  std::optional<simdjson::dom::element> detail;
  for (const auto [key, value] : row) {
    std::string_view text;
    if (key == "ts_ms")
      hasTime = !value.get_int64().get(event.tsMs);
    else if (key == "kind" && !value.get_string().get(text))
      event.kind = text, hasKind = true;
    else if (key == "type" && !value.get_string().get(text))
      event.type = text, hasType = true;
    else if (key == "source" && !value.get_string().get(text))
      event.source = text, hasSource = true;
    else if (key == "detail")
      detail = value;
  }
  if (hasTime && hasKind && hasType && hasSource && detail)
    event.detail = fromElement(*detail);
  else
    result.reset();
  return result;
}

std::vector<EventLogEvent> parse(std::string_view text) { return decodeLines<EventLogEvent>(text, decode); }
std::vector<EventLogEvent> read(const std::filesystem::path& file) { return parse(readFile(file)); }

}  // namespace EventLogReader

namespace ClassifierLogReader {

std::vector<ClassifierTick> parse(std::string_view text) {
  auto rows = decodeLines<ClassifierTick>(text, ClassifierTick::decode);
  std::stable_sort(rows.begin(), rows.end(), [](const ClassifierTick& a, const ClassifierTick& b) { return a.at < b.at; });
  return rows;
}
std::vector<ClassifierTick> read(const std::filesystem::path& file) { return parse(readFile(file)); }

}  // namespace ClassifierLogReader

namespace JSONLReaders {

namespace {

template <class Row>
IncrementalJSONLReader<Row> make(const std::filesystem::path& file, std::optional<Row> (*decode)(std::string_view), RowFilter<Row> filter,
                                 int approximateBytesPerLine) {
  if (!filter) return {file, decode, approximateBytesPerLine};
  return {file,
          [decode, filter = std::move(filter)](std::string_view line) {
            auto row = decode(line);
            if (row && !filter(*row)) row.reset();
            return row;
          },
          approximateBytesPerLine};
}

}  // namespace

IncrementalJSONLReader<EventLogEvent> events(const std::filesystem::path& file, RowFilter<EventLogEvent> filter) {
  return make(file, EventLogReader::decode, std::move(filter), 200);
}
IncrementalJSONLReader<ClassifierTick> classifierTicks(const std::filesystem::path& file, RowFilter<ClassifierTick> filter) {
  return make(file, ClassifierTick::decode, std::move(filter), 500);
}

}  // namespace JSONLReaders

}  // namespace halvo
