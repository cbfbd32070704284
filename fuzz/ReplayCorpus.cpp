// The main of a fuzz target that runs as an ordinary test: every file of its corpus, and mutations of them that are the same each time.
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

constexpr int mutationsPerFile = 2000;

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
  std::mt19937 random(20'260'101);
  int files = 0;
  for (int i = 1; i < argc; ++i)
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream stream(entry.path(), std::ios::binary);
      const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
      run(bytes);
      for (int round = 0; round < mutationsPerFile; ++round) run(mutated(bytes, random));
      ++files;
    }
  std::printf("%d corpus files, %d mutations each\n", files, mutationsPerFile);
  return files > 0 ? 0 : 1;
}
