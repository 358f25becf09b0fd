// A locked effect instance's place in the player protocol: its slot in the
// machine-wide register, the slot's transfer mapping, and the named events the
// player, the receiver thread and the configuration listener wait on.
#pragma once

#include "platform/ApoInterfaces.h"
#include "platform/UniqueResource.h"
#include "transfer/MemMappingRegister.h"
#include "transfer/TransferMapping.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quillon {

class InstanceRegistration {
 public:
  // Claims a slot for `endpointId`, copies the stream `format` into the slot's
  // mapping and creates the slot's events. Logs and returns false when no slot
  // can be had; the instance then receives no sound until its next lock.
  bool Register(const std::wstring& endpointId, const UNCOMPRESSEDAUDIOFORMAT& format);
  // Tells a waiting player that the instance is gone (after the receiver stopped).
  void AnnounceClosed();
  // Frees the slot and closes the mapping and the stop event. The other events
  // stay open until the next registration or the end of the object, in the
  // order the player application expects them to vanish.
  void Release();

  bool HasRegister() const { return memMappingRegister != nullptr; }
  bool Registered() const { return instanceIndex != -1; }
  int32_t Slot() const { return instanceIndex; }
  // "APO[<slot>]<endpoint>", the prefix of the instance's log lines.
  const std::wstring& InstanceName() const { return instanceName; }
  TransferMapping* Control() const { return controlView; }

  HANDLE ChunkConsumedEvent() const { return chunkConsumedEvent.Get(); }
  HANDLE ControlCallbackEvent() const { return controlCallbackEvent.Get(); }
  HANDLE ConfigChangedEvent() const { return configChangedEvent.Get(); }
  // Shared by every instance; set by the real-time routine on a stop request.
  HANDLE StopEvent() const { return stopEvent.Get(); }

 private:
  std::unique_ptr<MemMappingRegister> memMappingRegister;
  TransferMapping* controlView = nullptr;
  int32_t instanceIndex = -1;
  std::wstring instanceName;
  UniqueHandle stopEvent;
  // Destroyed bottom to top: the configuration event first, the chunk event last.
  UniqueHandle chunkConsumedEvent;
  UniqueHandle controlCallbackEvent;
  UniqueHandle configChangedEvent;
};

}  // namespace quillon
