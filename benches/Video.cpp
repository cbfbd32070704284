// Sealing and opening a recording, beside OpenSSL alone on the same buffers.

#include <benchmark/benchmark.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/mman.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"
#include "CaptureShared/Recording/VideoStreamEncryptor.h"

namespace {

using namespace halvo;
using namespace VideoEncryptionFormat;

constexpr int chunks = 16;

SymmetricKey key() {
  std::array<char, SymmetricKey::size> bytes;
  bytes.fill('k');
  return SymmetricKey(bytes);
}

struct Free {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, Free>;
unsigned char* raw(char* bytes) { return reinterpret_cast<unsigned char*>(bytes); }

Context contextFor(bool sealing) {
  Context context(EVP_CIPHER_CTX_new());
  const auto secret = key();
  EVP_CipherInit_ex2(context.get(), EVP_aes_256_gcm(), reinterpret_cast<const unsigned char*>(secret.bytes().data()), nullptr, sealing, nullptr);
  return context;
}

void countBytes(benchmark::State& state) { state.SetBytesProcessed(state.iterations() * chunks * static_cast<std::int64_t>(state.range(0))); }

/// What is sealed goes to nowhere, so that the disk is not what is measured, in the two writes a chunk that the format has.
void bareSealing(benchmark::State& state) {
  const FileHandle nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const std::string plain(static_cast<std::size_t>(state.range(0)), 'x');
  std::string box(plain.size() + boxOverhead, '\0');
  const auto context = contextFor(true);
  int length = 0;
  for (auto _ : state)
    for (int n = 0; n < chunks; ++n) {
      auto* nonce = raw(box.data());
      RAND_bytes(nonce, nonceLength);
      EVP_EncryptInit_ex2(context.get(), nullptr, nullptr, nonce, nullptr);
      EVP_EncryptUpdate(context.get(), nonce + nonceLength, &length, reinterpret_cast<const unsigned char*>(plain.data()), static_cast<int>(plain.size()));
      EVP_EncryptFinal_ex(context.get(), nonce + nonceLength + plain.size(), &length);
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, tagLength, nonce + nonceLength + plain.size());
      const auto size = static_cast<std::uint32_t>(box.size());
      if (::write(nowhere.fd(), &size, sizeof size) != sizeof size || ::write(nowhere.fd(), box.data(), box.size()) < 0) std::abort();
    }
  countBytes(state);
}

void sealing(benchmark::State& state) {
  const std::string plain(static_cast<std::size_t>(state.range(0)), 'x');
  const FileHandle nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  VideoStreamEncryptor encryptor({.key = key(), .generation = 1, .output = nowhere.fd()});
  for (auto _ : state)
    for (int n = 0; n < chunks; ++n) encryptor.write(plain);
  countBytes(state);
}

/// A recording in memory of 16 chunks.
FileHandle recording(std::size_t size) {
  FileHandle file(::memfd_create("recording", MFD_CLOEXEC));
  if (!file) throw std::system_error(errno, std::generic_category(), "memfd");
  VideoStreamEncryptor encryptor({.key = key(), .generation = 1, .output = file.fd()});
  const std::string plain(size, 'x');
  for (int n = 0; n < chunks; ++n) encryptor.write(plain);
  return file;
}

/// The same bytes, read piece by piece, each behind its length, and opened.
void bareOpening(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const auto file = recording(size);
  std::string box(size + boxOverhead, '\0');
  const auto context = contextFor(false);
  int length = 0;
  for (auto _ : state)
    for (int n = 0; n < chunks; ++n) {
      const auto at = static_cast<off_t>(v2HeaderLength + static_cast<std::size_t>(n) * (lengthFieldLength + box.size()));
      std::uint32_t boxSize = 0;
      if (::pread(file.fd(), &boxSize, sizeof boxSize, at) != sizeof boxSize || boxSize != box.size()) std::abort();
      if (::pread(file.fd(), box.data(), boxSize, at + lengthFieldLength) != static_cast<ssize_t>(boxSize)) std::abort();
      auto* text = raw(box.data()) + nonceLength;
      EVP_DecryptInit_ex2(context.get(), nullptr, nullptr, raw(box.data()), nullptr);
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, tagLength, text + size);
      EVP_DecryptUpdate(context.get(), text, &length, text, static_cast<int>(size));
      if (EVP_DecryptFinal_ex(context.get(), text + size, &length) != 1) std::abort();
      benchmark::ClobberMemory();
    }
  countBytes(state);
}

void opening(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const auto file = recording(size);
  const auto secret = key();
  for (auto _ : state) {
    ::lseek(file.fd(), 0, SEEK_SET);
    VideoStreamDecryptor decryptor(secret, file.fd());
    std::size_t opened = 0;
    while (const auto chunk = decryptor.readChunk()) opened += chunk->size();
    if (opened != size * chunks) std::abort();
  }
  countBytes(state);
}

/// The most memory this process had since the last `forgetPeak`, in KiB.
double peakKilobytes() {
  const auto status = readFile("/proc/self/status");
  return std::strtod(status.c_str() + status.find("VmHWM:") + 6, nullptr);
}
void forgetPeak() { writeAll(FileHandle(::open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC)).fd(), "5", "clear_refs"); }

/// By how much memory grows while 256 MiB are opened and sealed again, in KiB: a chunk for each side.
void memoryOfAPass(benchmark::State& state) {
  const auto file = recording(chunkSize);
  forgetPeak();
  const auto before = peakKilobytes();
  for (auto _ : state) {
    const FileHandle nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    VideoStreamEncryptor encryptor({.key = key(), .generation = 1, .output = nowhere.fd()});
    for (int n = 0; n < 16; ++n) {
      ::lseek(file.fd(), 0, SEEK_SET);
      VideoStreamDecryptor decryptor(key(), file.fd());
      while (const auto chunk = decryptor.readChunk()) encryptor.write(*chunk);
    }
  }
  state.counters["grownKiB"] = peakKilobytes() - before;
}

}  // namespace

BENCHMARK(memoryOfAPass)->Iterations(1);
// A whole chunk, and what a recorder writes at two frames a second.
BENCHMARK(bareSealing)->Arg(chunkSize)->Arg(32768);
BENCHMARK(sealing)->Arg(chunkSize)->Arg(32768);
BENCHMARK(bareOpening)->Arg(chunkSize)->Arg(32768);
BENCHMARK(opening)->Arg(chunkSize)->Arg(32768);

BENCHMARK_MAIN();
