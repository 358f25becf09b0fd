// The player application's side of the sound transfer protocol: find a running
// effect instance in the register by its endpoint, read its stream format,
// hand it blocks of samples, stop its sound, notice when it goes away.
//
// It copes with any version of the effect: a slot counts only once it is in
// use with a usable format (an older effect marks the slot first and writes
// the format after), a block that another player left is never overwritten,
// and before every block the slot must still belong to the same endpoint at
// the same format.
#pragma once

#include "platform/MappedView.h"
#include "platform/UniqueResource.h"
#include "transfer/SharedLayout.h"

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <functional>
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

// A stream a player can send to: float samples, 1 to 4096 channels, 10 to
// 384000 frames per second.
bool IsUsableFormat(const UNCOMPRESSEDAUDIOFORMAT& format);

enum class PlayerStatus {
  Ok,
  NoInstance,        // no instance of the endpoint is in use
  SeveralInstances,  // no endpoint was named and more than one instance runs
  NoFormat,          // the instance is in use but has not published a usable format yet
  Closed,            // the instance unregistered
  Replaced,          // the slot now belongs to another endpoint, or to the same one at another format
  OtherPlayer,       // a block of another player was waiting in the mapping
  NotAnswering,      // the effect stopped looking at the mapping (its process died)
  Timeout,           // the effect answers but did not take the block in time
  MutexBusy,         // the transfer mutex stayed taken for a second
  Interrupted,       // the interrupt event was set (Ctrl+C, a closing console)
};

class PlayerClient {
 public:
  // Every wait also ends when `interrupt` (optional) is set.
  explicit PlayerClient(HANDLE interrupt = nullptr) : interrupt_(interrupt) {}
  PlayerClient(const PlayerClient&) = delete;
  PlayerClient& operator=(const PlayerClient&) = delete;

  // Waits up to `timeoutMs` for an instance of `endpoint` (or, with an empty
  // text, for the only instance in use) that is ready, and opens its objects.
  // `waiting` (when given) is told once, with the slot, when the instance is
  // found in use before it has published its stream format.
  PlayerStatus Connect(const std::wstring& endpoint, DWORD timeoutMs,
                       const std::function<void(int32_t slot)>& waiting = {});

  // Every wait from now on ends when `interrupt` is set instead.
  void SetInterrupt(HANDLE interrupt) { interrupt_ = interrupt; }

  int32_t Slot() const { return slot_; }
  const std::wstring& Endpoint() const { return endpoint_; }
  // The stream's format as it was when the client connected.
  const UNCOMPRESSEDAUDIOFORMAT& Format() const { return format_; }
  uint32_t Channels() const { return format_.dwSamplesPerFrame; }
  // The largest block of whole frames that fits the mapping.
  size_t MaxBlockSamples() const;
  std::wstring TransferMutexName() const;

  // Sends `count` samples (cut to whole frames and to MaxBlockSamples()) as one
  // block under the transfer mutex, wakes the effect's receiver, then waits
  // until the effect took it. (The receiver otherwise looks only after the
  // stream took a chunk, which never happens while nothing is queued.)
  // `written`, when given, is signalled right after the block was marked ready.
  // The first block clears a stop request that an interrupted stop left set.
  PlayerStatus Send(const float* samples, size_t count, DWORD timeoutMs, HANDLE written = nullptr);

  // Raises the stop request, waits for the stop event, and clears the request.
  PlayerStatus Stop(DWORD timeoutMs);

  // After an interrupt: withdraws this player's block if it was not taken yet,
  // and drops what the effect queued with a stop request.
  void Abandon();

  // Waits until the instance has unregistered.
  PlayerStatus WaitClosed(DWORD timeoutMs);

  // One line for the user about a status other than Ok.
  std::string Explain(PlayerStatus status) const;

  TransferBlock* Block() const { return reinterpret_cast<TransferBlock*>(view_.Get()); }
  // Set by the effect after every look at the mapping. After Send returned,
  // the next look comes when the stream takes a chunk: when the block just
  // sent (queued behind nothing) starts to play. Reset it before waiting.
  HANDLE LookEvent() const { return controlEvent_.Get(); }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Wake { Answered, Quiet, Interrupted };

  bool OpenSlot(int32_t slot);
  PlayerStatus CheckInstance();
  PlayerStatus WaitTaken(Clock::time_point deadline);
  Wake WaitForAnswer(DWORD ms) const;
  // Sleeps `ms`; true when interrupted instead.
  bool Pause(DWORD ms) const;
  bool BlockTaken() const;
  UNCOMPRESSEDAUDIOFORMAT PublishedFormat() const;

  HANDLE interrupt_;
  int32_t slot_ = -1;
  std::wstring endpoint_;
  UNCOMPRESSEDAUDIOFORMAT format_{};
  size_t blocksSent_ = 0;
  std::wstring replacedBy_;  // what took the slot over, for Explain()
  MappedView register_;
  MappedView view_;
  UniqueHandle controlEvent_;
  UniqueHandle chunkConsumedEvent_;
  UniqueHandle stopEvent_;
};

}  // namespace quillon::player
