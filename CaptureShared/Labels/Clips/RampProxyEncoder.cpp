#include "CaptureShared/Labels/Clips/RampProxyEncoder.h"

#include <chrono>
#include <map>
#include <set>
#include <span>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UUID.h"
#include "CaptureShared/Recording/FFmpegRun.h"
#include "CaptureShared/Recording/RecordingInput.h"

namespace halvo::RampProxyEncoder {

namespace {

namespace fs = std::filesystem;
using Kind = EncodeError::Kind;
using RampClipPlan::Frame;
using RampClipPlan::Plan;
using Arguments = std::vector<std::string>;

constexpr auto unreadableText = trMark("This part of the recording can not be read");

double secondsNow() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

std::string detailOf(const FFmpegRun::Outcome& outcome) {
  const auto text = std::string(Text::trim(Text::scrubbed(outcome.standardError)));
  return text.empty() ? fmt::format("ffmpeg exit {}", outcome.exitStatus) : Text::newlinesToBlanks(text);
}

/// An expression of ffmpeg's that holds for these frames. Halved again and again: its parser takes no more than a hundred terms side by side.
std::string anyOf(std::span<const std::int64_t> frames) {
  if (frames.size() == 1) return fmt::format("eq(n\\,{})", frames.front());
  const auto half = frames.size() / 2;
  return "(" + anyOf(frames.first(half)) + "+" + anyOf(frames.subspan(half)) + ")";
}

/// A text as the value of a filter's option, inside a graph of filters: each of the two has its own escapes.
std::string filterText(const std::string& text) {
  std::string value;
  for (const char c : text) value += (c == '\\' || c == '\'' || c == ':' ? "\\" : "") + std::string(1, c);
  return "'" + Text::replaceAll(std::move(value), "'", "'\\''") + "'";
}

/// A folder that goes with this object.
struct Scratch {
  explicit Scratch(fs::path at) : path(std::move(at)) { makePrivateFolder(path); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

class Encode {
 public:
  Encode(const Plan& plan, fs::path output, const Setup& setup, const std::stop_token& stop)
      : plan_(plan), output_(std::move(output)), setup_(setup), stop_(stop), scratch_(output_.parent_path() / newUUID()) {}

  Cost run() {
    Cost cost{.url = output_,
              .framesRequested = plan_.outputFrameCount(),
              .pixelWidth = setup_.pixelWidth,
              .pixelHeight = setup_.pixelHeight};
    const auto start = secondsNow();
    cost.sourceFramesRequested = decodeAll();
    cost.sourceFrameCount = static_cast<int>(images_.size());
    if (images_.empty()) throw EncodeError(Kind::noDecodableFrames, tr("no frame of the recording could be read"));
    const auto decoded = secondsNow();
    cost.frameCount = layOut();
    write();
    cost.byteCount = static_cast<std::int64_t>(fs::file_size(output_));
    const auto end = secondsNow();
    cost.decodeSeconds = decoded - start, cost.encodeSeconds = end - decoded, cost.totalSeconds = end - start;
    return cost;
  }

 private:
  using Key = std::pair<fs::path, std::int64_t>;

  FFmpegRun::Outcome ffmpeg(Arguments arguments, const FFmpegRun::Feed& feed = {}) const {
    Arguments words{"-nostdin", "-v", "error"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    try {
      return FFmpegRun::run(setup_.ffmpeg, words, feed, stop_);
    } catch (const std::system_error& error) {
      throw EncodeError(Kind::writerSetupFailed, error.what());
    }
  }

  /// How many different frames were wanted.
  int decodeAll() {
    std::map<fs::path, std::set<std::int64_t>> wanted;
    for (const auto& frame : plan_.frames)
      if (!frame.isGap()) wanted[*frame.file].insert(frame.frameInFile());
    std::size_t count = 0;
    for (const auto& [file, frames] : wanted) decode(file, frames), count += frames.size();
    return static_cast<int>(count);
  }

  /// One picture for each frame, in their order, up to where the recording can be read.
  void decode(const fs::path& file, const std::set<std::int64_t>& frames) {
    const auto prefix = fmt::format("source-{}-", ++sources_);
    RecordingInput input(file, setup_.keyForGeneration);
    auto words = input.words();
    const auto size = fmt::format("{}:{}", setup_.pixelWidth, setup_.pixelHeight);
    const auto filter = fmt::format("select='{}',scale={}:force_original_aspect_ratio=decrease,pad={}:-1:-1,setsar=1",
                                    anyOf(std::vector(frames.begin(), frames.end())), size, size);
    words.insert(words.end(), {"-an", "-vf", filter, "-fps_mode", "passthrough", "-frames:v", std::to_string(frames.size()), "-q:v", "3",
                               "-f", "image2", (scratch_.path / (prefix + "%06d.jpg")).string()});
    ffmpeg(words, input.feed());
    int number = 0;
    for (const auto frame : frames) {
      const auto image = fmt::format("{}{:06}.jpg", prefix, ++number);
      std::error_code error;
      if (fs::file_size(scratch_.path / image, error) == 0 || error) break;
      images_[{file, frame}] = image;
    }
  }

  /// A picture with a line of text on it, made once for each text.
  std::string card(const std::string& text) {
    auto [found, isNew] = cards_.try_emplace(text, fmt::format("card-{}.jpg", cards_.size()));
    if (!isNew) return found->second;
    const auto outcome = ffmpeg({"-f", "lavfi", "-i", fmt::format("color=c=0x24282c:s={}x{}", setup_.pixelWidth, setup_.pixelHeight), "-vf",
                                 fmt::format("drawtext=text={}:expansion=none:fontcolor=white:fontsize=h/20:x=(w-text_w)/2:y=(h-text_h)/2",
                                             filterText(text)),
                                 "-frames:v", "1", "-q:v", "3", "-update", "1", (scratch_.path / found->second).string()});
    if (outcome.exitStatus != 0) throw EncodeError(Kind::writerFailed, detailOf(outcome));
    return found->second;
  }

  std::string gapText(std::size_t index) const {
    const auto nextMs = index + 1 < plan_.frames.size() ? plan_.frames[index + 1].sourceRealMs : plan_.judgedInstantMs;
    const auto seconds = (nextMs - plan_.frames[index].sourceRealMs) / 1000;
    return seconds < 120 ? tr("Nothing was recorded here, for {} s", seconds) : tr("Nothing was recorded here, for {} min", seconds / 60);
  }

  /// Gives every frame of the clip its number; answers how many there are.
  int layOut() {
    int number = 0;
    for (std::size_t i = 0; i < plan_.frames.size(); ++i) {
      const auto& frame = plan_.frames[i];
      if (frame.holdFrames <= 0) continue;
      std::string image;
      if (frame.isGap()) {
        image = card(gapText(i));
      } else {
        const auto found = images_.find(Key{*frame.file, frame.frameInFile()});
        image = found == images_.end() ? card(tr(unreadableText)) : found->second;
      }
      for (int hold = 0; hold < frame.holdFrames; ++hold)
        fs::create_symlink(image, scratch_.path / fmt::format("clip-{:06}.jpg", ++number));
    }
    return number;
  }

  void write() {
    const auto draft = scratch_.path / "clip.mp4";
    const FileHandle made(::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!made) throw EncodeError(Kind::writerSetupFailed, errnoText(errno));
    const auto frames = (scratch_.path / "clip-%06d.jpg").string();
    const auto outcome = ffmpeg({"-framerate", fmt::format("{}", plan_.outputFps), "-start_number", "1", "-i", frames, "-c:v", "libx264",
                                 "-preset", "veryfast", "-crf", "26", "-pix_fmt", "yuv420p", "-movflags", "+faststart", "-y", draft.string()});
    if (outcome.exitStatus != 0) throw EncodeError(Kind::writerFailed, detailOf(outcome));
    fs::rename(draft, output_);
  }

  const Plan& plan_;
  fs::path output_;
  const Setup& setup_;
  const std::stop_token& stop_;
  Scratch scratch_;
  int sources_ = 0;
  std::map<Key, std::string> images_;
  std::map<std::string, std::string> cards_;
};

}  // namespace

Cost encode(const Plan& plan, const fs::path& output, const Setup& setup, const std::stop_token& stop) {
  if (plan.outputFrameCount() == 0) throw EncodeError(Kind::emptyPlan, tr("there is nothing to show"));
  try {
    return Encode(plan, output, setup, stop).run();
  } catch (const std::system_error& error) {
    throw EncodeError(Kind::writerSetupFailed, error.what());
  }
}

}  // namespace halvo::RampProxyEncoder
