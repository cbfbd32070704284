#include "CaptureShared/Foundation/UUID.h"

#include <array>
#include <cstdint>
#include <random>

#include <fmt/format.h>

namespace halvo {

std::string newUUID() {
  std::random_device device;
  std::array<std::uint32_t, 4> word{};
  for (auto& part : word) part = device();
  word[1] = (word[1] & 0xFFFF0FFFu) | 0x00004000u;  // version 4: random
  word[2] = (word[2] & 0x3FFFFFFFu) | 0x80000000u;  // the variant every reader expects
  return fmt::format("{:08X}-{:04X}-{:04X}-{:04X}-{:04X}{:08X}", word[0], word[1] >> 16, word[1] & 0xFFFF, word[2] >> 16, word[2] & 0xFFFF,
                     word[3]);
}

}  // namespace halvo
