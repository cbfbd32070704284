// The main of a fuzz target that runs as an ordinary test: every file of its corpus, and mutations of them that are the same each time.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t mostMutationsPerFile = 2000, mostMutations = 20'000;

void run(const std::string& bytes) { LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()); }

std::string mutated(std::string bytes, std::mt19937& random) {
  auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % std::max<std::size_t>(1, limit)); };
  for (auto rounds = 1 + below(4); rounds > 0; --rounds) {
    const auto at = below(bytes.size() + 1);
    switch (below(4)) {
      case 0: bytes.resize(at); break;
      case 1: bytes.insert(at, 1, static_cast<char>(below(256))); break;
      case 2:
        if (at < bytes.size()) bytes[at] = static_cast<char>(below(256));
        break;
      default: bytes.insert(at, bytes.substr(below(bytes.size() + 1), below(64))); break;
    }
  }
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i)
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream stream(entry.path(), std::ios::binary);
      files.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
  // A folder tells its files in any order.
  std::ranges::sort(files);
  std::mt19937 random(20'260'101);
  const auto perFile = std::min(mostMutationsPerFile, mostMutations / std::max<std::size_t>(1, files.size()));
  for (const auto& bytes : files) {
    run(bytes);
    for (std::size_t round = 0; round < perFile; ++round) run(mutated(bytes, random));
  }
  std::printf("%zu corpus files, %zu mutations each\n", files.size(), perFile);
  return files.empty() ? 1 : 0;
}
