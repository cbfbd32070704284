#include "AmbitudeCore/Coach/CoachStream.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

std::filesystem::path CoachStream::url(const std::filesystem::path& dataRoot) {
  return DataPaths::ioLayerDir(dataRoot) / "coach-stream.jsonl";
}

CoachStreamWriter::CoachStreamWriter(const std::filesystem::path& file, std::string turnID) : turnID_(std::move(turnID)) {
  makePrivateFolder(file.parent_path());
  file_ = FileHandle(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
  if (!file_) throw std::system_error(errno, std::generic_category(), file.string());
}

void CoachStreamWriter::append(const Delta& delta) {
  const auto line = JSONValue(JSONObject{{"turn_id", turnID_},
                                         {"text", Text::scrubbed(delta.text)},
                                         {"thinking", Text::scrubbed(delta.thinking)},
                                         {"reset", delta.reset},
                                         {"reset_thinking", delta.resetThinking},
                                         {"done", delta.done}})
                        .dump() +
                    "\n";
  if (::write(file_.fd(), line.data(), line.size()) != static_cast<ssize_t>(line.size()))
    throw std::system_error(errno ? errno : EIO, std::generic_category(), "coach-stream.jsonl");
}

}  // namespace halvo
