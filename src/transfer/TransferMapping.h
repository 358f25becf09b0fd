// One slot's transfer mapping: the shared block through which the player
// application hands sound to an effect instance.
#pragma once

#include <windows.h>

#include <cstdint>

namespace quillon {

// Byte offsets of the transfer mapping's fields (a wire format shared with the player).
namespace TransferLayout {
constexpr size_t kStopRequest = 0;
constexpr size_t kFormat = 4;
constexpr size_t kInstanceClosed = 40;
constexpr size_t kDataReady = 44;
constexpr size_t kByteCount = 48;
constexpr size_t kSamples = 52;
constexpr size_t kMaxSampleBytes = 262144;
constexpr size_t kSize = kSamples + kMaxSampleBytes;  // 262196
}  // namespace TransferLayout

struct TransferMapping {
  HANDLE mappingHandle = nullptr;
  uint8_t* view = nullptr;
  int32_t slot = -1;
};

}  // namespace quillon
