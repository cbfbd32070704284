// Recording one 1920x1080 display, beside a bare ffmpeg that is fed the same pictures: the CPU time of both with their children.

#include <benchmark/benchmark.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "agents/Capturer/CapturerLoop.h"
#include "agents/Capturer/FrameEncoder.h"

namespace {

using namespace halvo;

constexpr int width = 1920, height = 1080, frames = 40;

/// A page of text-like strokes that scrolls, as a desktop does; a few of them, made before the clock runs.
const std::vector<std::string>& pictures() {
  static const auto made = [] {
    std::vector<std::string> all(4, std::string(std::size_t{width} * height * 4, '\xF0'));
    for (int n = 0; n < 4; ++n)
      for (int y = 100; y < 900; ++y)
        for (int x = 200; x < 1400; ++x)
          if (((x * 2654435761u ^ static_cast<unsigned>((y + n * 18) / 3) * 40503u) >> 7 & 7) == 0)
            all[static_cast<std::size_t>(n)].replace((std::size_t{width} * static_cast<std::size_t>(y) + static_cast<std::size_t>(x)) * 4, 3, 3, '\x20');
    return all;
  }();
  return made;
}

double cpuSec() {
  double sum = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    ::getrusage(who, &usage);
    sum += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  }
  return sum;
}

class Screen : public ScreenCapture {
 public:
  std::vector<ScreenDisplay> displays() override { return {{.bounds = {.width = width, .height = height}, .isPrimary = true}}; }
  std::string capturePNG(const Rect&, double, const std::stop_token&) override { return {}; }
  void capturePixels(const Rect&, std::span<std::uint8_t> pixels, double, const std::stop_token&) override {
    const auto& picture = pictures()[next_++ % 4];
    std::copy(picture.begin(), picture.end(), pixels.begin());
  }

 private:
  std::size_t next_ = 0;
};

class Probes : public DesktopProbes {
 public:
  std::optional<FrontmostApp> frontmostApp() override { return {}; }
  std::optional<std::vector<WindowInfo>> windowList() override { return std::vector<WindowInfo>(); }
  IdleSeconds idleSeconds() override { return {}; }
  std::optional<Point> mouseLocation() override { return {}; }
  std::optional<bool> clamshellClosed() override { return {}; }
  SessionState sessionState() override { return {}; }
  std::optional<BrowserTab> browserTab(const std::optional<std::string>&) override { return {}; }
  BatteryInfo batteryInfo() override { return {}; }
  BatteryTelemetry batteryTelemetry() override { return {}; }
  DesktopSample sample() override { return {.windows = std::vector<WindowInfo>()}; }
};

void bareRecording(benchmark::State& state) {
  pictures();
  for (auto _ : state) {
    const auto before = cpuSec();
    const Spawn::BrokenPipeGuard guard;
    auto input = Spawn::Pipe::make();
    const FileHandle nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const auto pid = Spawn::run("/usr/bin/ffmpeg", FrameEncoder::arguments(width, height), std::nullopt,
                                {{input.read.fd(), STDIN_FILENO}, {nowhere.fd(), STDOUT_FILENO}, {nowhere.fd(), STDERR_FILENO}});
    ::fcntl(input.write.fd(), F_SETPIPE_SZ, 1 << 20);
    for (int i = 0; i < frames; ++i) writeAll(input.write.fd(), pictures()[static_cast<std::size_t>(i) % 4], "ffmpeg");
    input.write.reset();
    Spawn::wait(pid);
    state.SetIterationTime(cpuSec() - before);
  }
}

void recording(benchmark::State& state) {
  pictures();
  for (auto _ : state) {
    std::string name = (std::filesystem::temp_directory_path() / "halvo-bench-XXXXXX").string();
    if (!::mkdtemp(name.data())) return state.SkipWithError("no temporary folder");
    std::filesystem::create_directory(std::filesystem::path(name) / "video");
    const auto before = cpuSec();
    Screen screen;
    Probes probes;
    std::int64_t nowMs = Clock::system().nowMs();
    std::array<char, SymmetricKey::size> bytes{};
    CapturerLoop loop({.probes = probes,
                       .screen = screen,
                       .clock = {.nowMs = [&] { return nowMs; }, .wait = [](double, const std::stop_token&) {}},
                       .root = name,
                       .key = SymmetricKey(bytes),
                       .ffmpeg = "/usr/bin/ffmpeg",
                       .denylist = Denylist::fromEnvironment({})});
    for (int i = 0; i < frames; ++i, nowMs += 500) loop.turn({});
    loop.endSessions();
    state.SetIterationTime(cpuSec() - before);
    std::filesystem::remove_all(name);
  }
}

}  // namespace

BENCHMARK(bareRecording)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(recording)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
