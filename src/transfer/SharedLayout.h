// The two shared-memory wire formats of the player protocol (little-endian,
// fixed offsets): the machine-wide instance register and one slot's transfer
// mapping. Shared with the player application: never change a field.
#pragma once

#include "platform/ApoInterfaces.h"

#include <cstddef>
#include <cstdint>

namespace quillon {

constexpr int32_t kMaxInstances = 20;
constexpr size_t kEndpointIdChars = 128;  // 127 characters and the terminator

constexpr const wchar_t* kRegisterMappingName = L"Global\\QuillonRegisterMappingObject1.8.0";
constexpr const wchar_t* kRegisterMutexName = L"Global\\QuillonRegisterMappingMutex1.8.0";
constexpr const wchar_t* kTransferMappingPrefix = L"Global\\QuillonMappingObject1.8.0";
constexpr const wchar_t* kTransferMutexPrefix = L"Global\\QuillonTransferMutex1.8.0";
constexpr const wchar_t* kChunkConsumedEventPrefix = L"Global\\QuillonCallback1.8.0";
constexpr const wchar_t* kControlEventPrefix = L"Global\\QuillonControlCallback1.8.0";
constexpr const wchar_t* kConfigChangedEventPrefix = L"Local\\ConfigChangeNotification";
constexpr const wchar_t* kStopEventName = L"Global\\QuillonStopCallback1.8.0";
constexpr DWORD kSharedMutexWaitMs = 1000;

// The register of running instances.
struct RegisterBlock {
  uint8_t inUse[kMaxInstances];       // 1 while the slot belongs to a registered instance
  uint32_t slotWordA[kMaxInstances];  // 1 once claimed
  uint32_t slotWordB[kMaxInstances];  // 8 once claimed
  wchar_t endpointIds[kMaxInstances][kEndpointIdChars];
};
static_assert(offsetof(RegisterBlock, inUse) == 0);
static_assert(offsetof(RegisterBlock, slotWordA) == 20);
static_assert(offsetof(RegisterBlock, slotWordB) == 100);
static_assert(offsetof(RegisterBlock, endpointIds) == 180);
static_assert(sizeof(RegisterBlock) == 5300);

constexpr uint32_t kSlotWordA = 1;
constexpr uint32_t kSlotWordB = 8;

// One slot's transfer mapping.
struct TransferBlock {
  static constexpr size_t kMaxSamples = 65536;
  static constexpr uint32_t kMaxBytes = kMaxSamples * sizeof(float);

  uint8_t stopRequest;  // player: non-zero drops queued sound and signals the stop event
  uint8_t unused[3];
  UNCOMPRESSEDAUDIOFORMAT format;  // effect: the stream's format, written at registration
  uint32_t instanceClosed;         // effect: 1 once the instance has unregistered
  uint32_t dataReady;              // player sets 1, effect clears: a block waits in `samples`
  uint32_t byteCount;              // player: bytes of sample data in `samples`
  float samples[kMaxSamples];      // interleaved float32 in the stream's format
};
static_assert(offsetof(TransferBlock, stopRequest) == 0);
static_assert(offsetof(TransferBlock, format) == 4);
static_assert(offsetof(TransferBlock, format) + offsetof(UNCOMPRESSEDAUDIOFORMAT, dwSamplesPerFrame) == 20);
static_assert(offsetof(TransferBlock, format) + offsetof(UNCOMPRESSEDAUDIOFORMAT, fFramesPerSecond) == 32);
static_assert(offsetof(TransferBlock, format) + offsetof(UNCOMPRESSEDAUDIOFORMAT, dwChannelMask) == 36);
static_assert(offsetof(TransferBlock, instanceClosed) == 40);
static_assert(offsetof(TransferBlock, dataReady) == 44);
static_assert(offsetof(TransferBlock, byteCount) == 48);
static_assert(offsetof(TransferBlock, samples) == 52);
static_assert(sizeof(TransferBlock) == 262196);

}  // namespace quillon
