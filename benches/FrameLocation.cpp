// Finding a frame in a sidecar of a gigabyte: what is read, and how long it takes.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <fmt/format.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Location/FrameLocator.h"
#include "CaptureShared/Recording/Location/FrameSidecar.h"

namespace {

using namespace halvo;
using namespace FrameLocator;
namespace fs = std::filesystem;

constexpr std::int64_t firstMs = 1'500'000'000'000, session = 1'790'000'000'000;
constexpr std::uint64_t gigabyte = 1'000'000'000;

/// A data root with one display, whose sidecar is written out in full.
class Archive {
 public:
  Archive() {
    auto name = (fs::temp_directory_path() / "halvo-bench-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    root_ = name;
    fs::create_directories(folder());
    const FileHandle out(::open(sidecar().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    std::string block;
    for (std::uint64_t written = 0; written < gigabyte; written += block.size(), block.clear()) {
      while (block.size() < 1 << 20) block += fmt::format("{},,,{},{}\n", firstMs + frames_ * 500, frames_, session), ++frames_;
      writeAll(out.fd(), block, sidecar());
    }
    const FileHandle segments(::open((folder() / fmt::format("segments-{}.csv", session)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    writeAll(segments.fd(), "2026-11-16T03.mkv,0,7200\n", "segments");
  }
  ~Archive() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  fs::path root() const { return root_; }
  fs::path folder() const { return DataPaths::videoDir(0, root_); }
  fs::path sidecar() const { return DataPaths::frameTimestampsPath(0, root_); }
  /// Moments all over the file, between two rows each.
  std::int64_t moment(std::int64_t n) const { return firstMs + n * 7'919'777 % (frames_ * 500); }

 private:
  fs::path root_;
  std::int64_t frames_ = 0;
};

const Archive& archive() {
  static const Archive archive;
  return archive;
}

/// Bytes that this process has read so far, by the kernel's count.
double bytesRead() {
  const auto io = readFile("/proc/self/io");
  return std::strtod(io.c_str() + io.find("rchar:") + 6, nullptr);
}
/// What `body` reads, less what the counting itself does.
template <class F>
double bytesReadBy(F&& body) {
  const auto before = bytesRead();
  const auto counting = bytesRead() - before;
  const auto start = bytesRead();
  body();
  return bytesRead() - start - counting;
}

/// The most that a locate reads of the sidecar, in KB: by the bisection, and after it.
void sidecarReads(benchmark::State& state) {
  const auto sidecar = FrameSidecar::open(archive().sidecar());
  if (!sidecar) std::abort();
  double bisection = 0, after = 0;
  std::int64_t n = 0;
  for (auto _ : state) {
    const auto at = archive().moment(++n);
    FrameSidecar::Range range;
    bisection = std::max(bisection, bytesReadBy([&] { range = sidecar->rangeAround(at); }));
    after = std::max(after, bytesReadBy([&] {
      const auto row = sidecar->nearestIn(range, at);
      if (!row || distanceMs(row->realTsMs, at) > 250) std::abort();
    }));
  }
  state.counters["bisectionKB"] = bisection / 1024;
  state.counters["afterKB"] = after / 1024;
}

/// A whole locate, from the moment to the answer that there is no such file.
void locateInAGigabyte(benchmark::State& state) {
  DirectoryListingCache cache;
  std::int64_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(locateDetailed({.atMs = archive().moment(++n), .root = archive().root(), .cache = cache}));
}

}  // namespace

BENCHMARK(sidecarReads)->Iterations(1000);
BENCHMARK(locateInAGigabyte)->Iterations(1000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
