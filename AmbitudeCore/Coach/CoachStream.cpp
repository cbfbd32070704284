#include "AmbitudeCore/Coach/CoachStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "AmbitudeCore/Coach/CoachStreamReader.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

std::string CoachStreamDelta::encode() const {
  return JSONValue(JSONObject{{"turn_id", turnID},
                              {"text", Text::scrubbed(text)},
                              {"thinking", Text::scrubbed(thinking)},
                              {"reset", reset},
                              {"reset_thinking", resetThinking},
                              {"done", done}})
      .dump();
}

std::optional<CoachStreamDelta> CoachStreamDelta::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  auto turn = object ? object->string("turn_id") : std::nullopt;
  if (!turn) return std::nullopt;
  return CoachStreamDelta{.turnID = std::move(*turn),
                          .text = object->string("text").value_or(""),
                          .thinking = object->string("thinking").value_or(""),
                          .reset = object->boolean("reset").value_or(false),
                          .resetThinking = object->boolean("reset_thinking").value_or(false),
                          .done = object->boolean("done").value_or(false)};
}

void CoachStreamState::add(const CoachStreamDelta& delta) {
  if (delta.turnID != turnID) *this = {.turnID = delta.turnID};
  if (delta.reset) text.clear();
  if (delta.resetThinking) thinking.clear();
  text += delta.text;
  thinking += delta.thinking;
  done = done || delta.done;
}

namespace CoachStream {

std::filesystem::path url(const std::filesystem::path& dataRoot) { return DataPaths::ioLayerDir(dataRoot) / "coach-stream.jsonl"; }

CoachStreamState fold(std::span<const CoachStreamDelta> deltas) {
  CoachStreamState state;
  for (const auto& delta : deltas) state.add(delta);
  return state;
}

CoachStreamState read(const std::filesystem::path& at) {
  CoachStreamReader reader;
  return reader.consume(at);
}

std::string turnID(std::int64_t asOfMs) { return "turn-" + std::to_string(asOfMs); }

}  // namespace CoachStream

CoachStreamWriter::CoachStreamWriter(const std::filesystem::path& file, std::string turnID) : turnID_(std::move(turnID)) {
  makePrivateFolder(file.parent_path());
  file_ = FileHandle(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
  if (!file_) throw std::system_error(errno, std::generic_category(), file.string());
}

void CoachStreamWriter::append(CoachStreamDelta delta) {
  delta.turnID = turnID_;
  writeAll(file_.fd(), delta.encode() + "\n", "coach-stream.jsonl");
}

}  // namespace halvo
