#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

/// How a recording lies on disk. All numbers are little-endian and, being on disk, never change.
///
///     file   = "HALVOVE2" generation:u32 chunk*      written
///            | "HALVOVE1" chunk*                     read only; which key sealed it is found by trying
///     chunk  = length:u32 box                        length: of the box
///     box    = nonce:12 ciphertext tag:16            AES-256-GCM, no associated data; plaintext of at most 1 MiB
///
/// The plaintexts, joined, are a Matroska stream. A file is complete after every chunk: there is no trailer, and a cut tail is the chunk
/// that the writer had not finished. A chunk is bound neither to its place nor to its file, and the header is not authenticated.
namespace halvo::VideoEncryptionFormat {

inline constexpr std::string_view magicV1 = "HALVOVE1";
inline constexpr std::string_view magicV2 = "HALVOVE2";
inline constexpr std::string_view magic = magicV1;
inline constexpr std::size_t generationFieldLength = 4;
inline constexpr std::size_t v2HeaderLength = magicV2.size() + generationFieldLength;
inline constexpr std::size_t lengthFieldLength = 4;
inline constexpr std::size_t nonceLength = 12;
inline constexpr std::size_t tagLength = 16;
/// The smallest box: one around nothing.
inline constexpr std::size_t boxOverhead = nonceLength + tagLength;
/// The largest plaintext of a chunk.
inline constexpr std::size_t chunkSize = 1'048'576;
/// The largest length that a reader believes; a little above what a writer can reach.
inline constexpr std::size_t maxPlausibleCombinedLength = chunkSize + 64;

/// Whether a file begins with one of the two magics. Any failure is a no.
bool isEncrypted(const std::filesystem::path& at);

/// The key generation in a version 2 header; absent for version 1, for other files, and on any failure.
std::optional<std::uint32_t> peekHeaderGeneration(const std::filesystem::path& at);

}  // namespace halvo::VideoEncryptionFormat
