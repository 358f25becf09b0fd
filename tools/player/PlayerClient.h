// The player application's side of the sound transfer protocol: find a running
// effect instance in the register by its endpoint, read its stream format,
// hand it blocks of samples, stop its sound, notice when it goes away.
#pragma once

#include "platform/MappedView.h"
#include "platform/UniqueHandle.h"
#include "transfer/SharedLayout.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace quillon::player {

struct RegisterEntry {
  int32_t slot;
  bool inUse;
  std::wstring endpoint;
};

// The register's slots as they stand now; empty when no effect ever registered.
std::vector<RegisterEntry> ReadRegister();

enum class SendResult { Accepted, Closed, Timeout, MutexBusy };

class PlayerClient {
 public:
  PlayerClient() = default;
  PlayerClient(const PlayerClient&) = delete;
  PlayerClient& operator=(const PlayerClient&) = delete;

  // Waits up to `timeoutMs` for an instance of `endpoint` (or, with an empty
  // text, for exactly one instance in use) and opens its objects.
  bool Connect(const std::wstring& endpoint, DWORD timeoutMs);

  int32_t Slot() const { return slot_; }
  UNCOMPRESSEDAUDIOFORMAT Format() const { return Block()->format; }
  std::wstring TransferMutexName() const;

  // Writes one block (at most 262144 bytes are sent) under the transfer mutex,
  // wakes the effect's receiver, then waits until the effect took it or went
  // away. (The receiver otherwise looks only after the stream took a chunk,
  // which never happens while nothing is queued.) `written`, when given,
  // is signalled right after the block was marked ready.
  SendResult Send(const void* data, uint32_t byteCount, DWORD timeoutMs, HANDLE written = nullptr);

  // Raises the stop request and waits for the stop event; clears the request after.
  bool Stop(DWORD timeoutMs);

  // Waits until the instance has unregistered.
  bool WaitClosed(DWORD timeoutMs);

  TransferBlock* Block() const { return reinterpret_cast<TransferBlock*>(view_.Get()); }

 private:
  bool InstanceClosed() const;

  int32_t slot_ = -1;
  MappedView view_;
  UniqueHandle controlEvent_;
  UniqueHandle chunkConsumedEvent_;
  UniqueHandle stopEvent_;
};

}  // namespace quillon::player
