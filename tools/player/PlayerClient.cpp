#include "player/PlayerClient.h"

#include "common/ToolSupport.h"
#include "platform/NamedMutexLock.h"
#include "transfer/WinUtils.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace quillon::player {
namespace {

// A live effect answers every look within a period or two; this is how often
// a player asks again when nobody looked, and how long silence may last
// before the effect counts as gone: the player gives up within 2 s of a block
// that was not taken, one asking interval included.
constexpr DWORD kAskAgainMs = 50;
constexpr std::chrono::milliseconds kAnswerWithin{1900};
constexpr DWORD kStopAnswerMs = 1000;

DWORD Remaining(std::chrono::steady_clock::time_point deadline) {
  auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  return left > 0 ? static_cast<DWORD>(left) : 0;
}

const RegisterBlock* AsRegister(const MappedView& view) {
  return reinterpret_cast<const RegisterBlock*>(view.Get());
}

bool MapRegister(MappedView& view) {
  return view.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kRegisterMappingName)),
                  sizeof(RegisterBlock));
}

std::vector<RegisterEntry> ReadEntries(const MappedView& view) {
  std::vector<RegisterEntry> entries;
  if (!view) return entries;
  const RegisterBlock* reg = AsRegister(view);
  NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
  for (int32_t slot = 0; slot < kMaxInstances; ++slot) {
    const wchar_t* text = reg->endpointIds[slot];
    entries.push_back({slot, reg->inUse[slot] != 0, std::wstring(text, wcsnlen(text, kEndpointIdChars))});
  }
  return entries;
}

std::string FormatText(const UNCOMPRESSEDAUDIOFORMAT& f) {
  return std::to_string(std::lround(f.fFramesPerSecond)) + " Hz, " + std::to_string(f.dwSamplesPerFrame) +
         (f.dwSamplesPerFrame == 1 ? " channel" : " channels");
}

}  // namespace

std::vector<RegisterEntry> ReadRegister() {
  MappedView view;
  MapRegister(view);
  return ReadEntries(view);
}

bool IsUsableFormat(const UNCOMPRESSEDAUDIOFORMAT& f) {
  return f.guidFormatType == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT_GUID && f.dwBytesPerSampleContainer == 4 &&
         f.dwSamplesPerFrame >= 1 && f.dwSamplesPerFrame <= 4096 && f.fFramesPerSecond >= 10.0f &&
         f.fFramesPerSecond <= 384000.0f;
}

PlayerStatus PlayerClient::Connect(const std::wstring& endpoint, DWORD timeoutMs,
                                   const std::function<void(int32_t slot)>& waiting) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  PlayerStatus status = PlayerStatus::NoInstance;
  bool told = false;
  while (true) {
    if (register_ || MapRegister(register_)) {
      std::vector<RegisterEntry> candidates;
      for (RegisterEntry& e : ReadEntries(register_)) {
        if (e.inUse && (endpoint.empty() || e.endpoint == endpoint)) candidates.push_back(std::move(e));
      }
      if (endpoint.empty() && candidates.size() > 1) return PlayerStatus::SeveralInstances;
      status = PlayerStatus::NoInstance;
      if (candidates.size() == 1 && OpenSlot(candidates[0].slot)) {
        // An effect may mark its slot in use before it writes the format.
        format_ = PublishedFormat();
        status = IsUsableFormat(format_) ? PlayerStatus::Ok : PlayerStatus::NoFormat;
        if (status == PlayerStatus::Ok) {
          endpoint_ = std::move(candidates[0].endpoint);
          return PlayerStatus::Ok;
        }
        if (waiting && !told) waiting(slot_);
        told = true;
      }
    }
    if (Remaining(deadline) == 0) return status;
    if (Pause(std::min<DWORD>(10, Remaining(deadline)))) return PlayerStatus::Interrupted;
  }
}

bool PlayerClient::OpenSlot(int32_t slot) {
  if (slot == slot_ && view_) return true;
  slot_ = slot;
  SECURITY_ATTRIBUTES* shared = WinUtils::GetNullDaclSecurityAttributes();
  auto event = [&](const wchar_t* prefix) {
    return CreateEventExW(shared, WinUtils::PerInstanceName(prefix, slot).c_str(), CREATE_EVENT_MANUAL_RESET,
                          EVENT_ALL_ACCESS);
  };
  controlEvent_.Reset(event(kControlEventPrefix));
  chunkConsumedEvent_.Reset(event(kChunkConsumedEventPrefix));
  stopEvent_.Reset(CreateEventExW(shared, kStopEventName, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
  const std::wstring name = WinUtils::PerInstanceName(kTransferMappingPrefix, slot);
  return view_.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str())), sizeof(TransferBlock)) &&
         controlEvent_ && chunkConsumedEvent_ && stopEvent_;
}

UNCOMPRESSEDAUDIOFORMAT PlayerClient::PublishedFormat() const {
  UNCOMPRESSEDAUDIOFORMAT format;
  std::memcpy(&format, &Block()->format, sizeof(format));
  return format;
}

size_t PlayerClient::MaxBlockSamples() const {
  const size_t channels = std::max<size_t>(1, Channels());
  return TransferBlock::kMaxSamples / channels * channels;
}

std::wstring PlayerClient::TransferMutexName() const {
  return WinUtils::PerInstanceName(kTransferMutexPrefix, slot_);
}

// The slot must still be in use by the same endpoint at the same format: an
// effect that unlocked frees it, and the next one to lock, another endpoint
// or this one at another format, takes the lowest free slot.
PlayerStatus PlayerClient::CheckInstance() {
  const std::vector<RegisterEntry> entries = ReadEntries(register_);
  if (entries.empty() || !entries[slot_].inUse) return PlayerStatus::Closed;
  const UNCOMPRESSEDAUDIOFORMAT now = PublishedFormat();
  if (entries[slot_].endpoint != endpoint_) {
    replacedBy_ = L"another microphone (" + entries[slot_].endpoint + L")";
    return PlayerStatus::Replaced;
  }
  if (std::memcmp(&now, &format_, sizeof(now)) != 0) {
    const std::string text = FormatText(now);
    replacedBy_ = L"the same microphone at " + std::wstring(text.begin(), text.end());
    return PlayerStatus::Replaced;
  }
  return PlayerStatus::Ok;
}

bool PlayerClient::Pause(DWORD ms) const {
  if (interrupt_ == nullptr) {
    Sleep(ms);
    return false;
  }
  return WaitForSingleObject(interrupt_, ms) == WAIT_OBJECT_0;
}

PlayerClient::Wake PlayerClient::WaitForAnswer(DWORD ms) const {
  HANDLE handles[2];
  DWORD count = 0;
  if (interrupt_ != nullptr) handles[count++] = interrupt_;
  if (controlEvent_) handles[count++] = controlEvent_.Get();
  const DWORD r = count == 0 ? (Sleep(ms), WAIT_TIMEOUT) : WaitForMultipleObjects(count, handles, FALSE, ms);
  if (interrupt_ != nullptr && r == WAIT_OBJECT_0) return Wake::Interrupted;
  return r < WAIT_OBJECT_0 + count ? Wake::Answered : Wake::Quiet;
}

bool PlayerClient::BlockTaken() const {
  NamedMutexLock lock(TransferMutexName().c_str(), kSharedMutexWaitMs);
  return *static_cast<volatile uint32_t*>(&Block()->dataReady) == 0;
}

PlayerStatus PlayerClient::Send(const float* samples, size_t count, DWORD timeoutMs, HANDLE written) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  count = std::min(count, MaxBlockSamples());
  count -= count % std::max<size_t>(1, Channels());
  if (PlayerStatus s = CheckInstance(); s != PlayerStatus::Ok) return s;
  bool othersWaiting;
  {
    NamedMutexLock lock(TransferMutexName().c_str(), kSharedMutexWaitMs);
    if (lock.WaitResult() == WAIT_TIMEOUT) return PlayerStatus::MutexBusy;
    TransferBlock* block = Block();
    if (blocksSent_ == 0) block->stopRequest = 0;
    // Every block of ours was taken before Send returned: one waiting now is
    // another player's, and it is never overwritten.
    othersWaiting = block->dataReady != 0;
    if (!othersWaiting) {
      std::memcpy(block->samples, samples, count * sizeof(float));
      block->byteCount = static_cast<uint32_t>(count * sizeof(float));
      block->dataReady = 1;
    }
  }
  if (othersWaiting) {
    const PlayerStatus s = WaitTaken(deadline);
    return s == PlayerStatus::Ok || s == PlayerStatus::Timeout ? PlayerStatus::OtherPlayer : s;
  }
  ++blocksSent_;
  if (written != nullptr) SetEvent(written);
  SetEvent(chunkConsumedEvent_.Get());
  return WaitTaken(deadline);
}

PlayerStatus PlayerClient::WaitTaken(Clock::time_point deadline) {
  auto answered = Clock::now();
  while (true) {
    // The effect sets the control event after every look at the mapping. A look
    // that left the block waiting (the queue held a chunk) is followed by
    // another at the next chunk taken, so only a silent effect is asked again:
    // asking after every look would keep both sides busy while the queue is full.
    const Wake wake = WaitForAnswer(std::min<DWORD>(kAskAgainMs, Remaining(deadline)));
    if (wake == Wake::Interrupted) return PlayerStatus::Interrupted;
    if (wake == Wake::Answered) {
      answered = Clock::now();
      ResetEvent(controlEvent_.Get());
    }
    if (BlockTaken()) return PlayerStatus::Ok;
    if (PlayerStatus s = CheckInstance(); s != PlayerStatus::Ok) return s;
    if (Clock::now() - answered >= kAnswerWithin) return PlayerStatus::NotAnswering;
    if (Remaining(deadline) == 0) return PlayerStatus::Timeout;
    if (wake == Wake::Quiet) SetEvent(chunkConsumedEvent_.Get());
  }
}

PlayerStatus PlayerClient::Stop(DWORD timeoutMs) {
  ResetEvent(stopEvent_.Get());
  Block()->stopRequest = 1;
  HANDLE handles[] = {stopEvent_.Get(), interrupt_};
  const DWORD r = WaitForMultipleObjects(interrupt_ != nullptr ? 2 : 1, handles, FALSE, timeoutMs);
  Block()->stopRequest = 0;
  if (r == WAIT_OBJECT_0) return PlayerStatus::Ok;
  return r == WAIT_OBJECT_0 + 1 ? PlayerStatus::Interrupted : PlayerStatus::Timeout;
}

void PlayerClient::Abandon() {
  if (!view_) return;
  {
    NamedMutexLock lock(TransferMutexName().c_str(), kSharedMutexWaitMs);
    // A waiting block is this player's own: it never writes over another's.
    if (lock.WaitResult() != WAIT_TIMEOUT && blocksSent_ > 0) Block()->dataReady = 0;
  }
  ResetEvent(stopEvent_.Get());
  Block()->stopRequest = 1;
  WaitForSingleObject(stopEvent_.Get(), kStopAnswerMs);
  Block()->stopRequest = 0;
}

PlayerStatus PlayerClient::WaitClosed(DWORD timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (true) {
    const PlayerStatus s = CheckInstance();
    if (s != PlayerStatus::Ok) return s;
    if (Remaining(deadline) == 0) return PlayerStatus::Timeout;
    if (WaitForAnswer(std::min<DWORD>(kAskAgainMs, Remaining(deadline))) == Wake::Interrupted) {
      return PlayerStatus::Interrupted;
    }
    ResetEvent(controlEvent_.Get());
  }
}

std::string PlayerClient::Explain(PlayerStatus status) const {
  using tools::Utf8;
  switch (status) {
    case PlayerStatus::Ok: return "done";
    case PlayerStatus::NoInstance: return "no effect instance is running for this microphone";
    case PlayerStatus::SeveralInstances: return "several effect instances are running: name the microphone";
    case PlayerStatus::NoFormat: return "the effect instance has not published its stream format";
    case PlayerStatus::Closed: return "the effect instance went away: its stream was closed";
    case PlayerStatus::Replaced:
      return "the effect instance went away: slot " + std::to_string(slot_) + " now belongs to " + Utf8(replacedBy_);
    case PlayerStatus::OtherPlayer: return "another player is sending to this microphone";
    case PlayerStatus::NotAnswering: return "the effect stopped answering";
    case PlayerStatus::Timeout: return "the effect did not take a block in time";
    case PlayerStatus::MutexBusy: return "the transfer mutex stayed busy";
    case PlayerStatus::Interrupted: return "interrupted";
  }
  return "unknown";
}

}  // namespace quillon::player
