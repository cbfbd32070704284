#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "AmbitudeCore/Classifier/ModelIntegrityGuard.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Provisioning/LlamaServerStatus.h"
#include "CaptureShared/Provisioning/LocalModelStamps.h"
#include "CaptureShared/Provisioning/ModelDownloadHost.h"
#include "CaptureShared/Provisioning/StreamingWriter.h"

/// What decodes survives a round trip, no redirect leaves https, a range begins at a byte there can be, and a server's word for its file is
/// a path or an error.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace halvo;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto stamps = LocalModelStore::decodeStamps(text);
  if (LocalModelStore::decodeStamps(LocalModelStore::encodeStamps(stamps)) != stamps) std::abort();
  if (const auto status = LlamaServerStatus::decode(text); status && LlamaServerStatus::decode(status->encode()) != status) std::abort();
  if (const auto start = contentRangeStart(text); start && *start < 0) std::abort();
  if (const auto target = ModelDownloadHost::redirect("https://models.invalid/a/b", text))
    if (URLParts::parse(*target)->scheme != "https") std::abort();
  ModelIntegrityGuard::decodeRefusalNote(text);
  try {
    if (ModelIntegrityGuard::servedPathIn(text).empty()) std::abort();
  } catch (const ModelIntegrityGuard::FetchError&) {
  }
  return 0;
}
