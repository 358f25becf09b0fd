#include "player/PlayerEngine.h"

#include "common/ToolSupport.h"
#include "player/MonitorOutput.h"

#include <algorithm>
#include <cmath>

namespace quillon::player {
namespace {

// A wait that ends on `events` or after `ms`.
void WaitAny(std::initializer_list<HANDLE> events, DWORD ms) {
  WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.begin(), FALSE, ms);
}

}  // namespace

PlayerEngine::PlayerEngine(std::unique_ptr<PlayerClient> mic, const EngineOptions& options, Listener listener)
    : mic_(std::move(mic)),
      options_(options),
      listener_(std::move(listener)),
      rate_(static_cast<uint32_t>(std::lround(mic_->Format().fFramesPerSecond))),
      channels_(mic_->Channels()),
      blockFrames_(std::clamp<size_t>(static_cast<size_t>(rate_ * options.blockMs / 1000.0), 1,
                                      mic_->MaxBlockSamples() / channels_)),
      bus_(rate_, channels_, 1.0f,
           [this](const VoiceStream& v, VoiceEvent e) {
             const audio::SoundSource* source = v.Source();
             const double seconds = static_cast<double>(v.FramesRead()) / rate_;
             listener_({v.Id(), e, v.File(), seconds, source != nullptr ? source->Seconds() : seconds, v.Error(),
                        source != nullptr ? &source->File() : nullptr});
             if (e == VoiceEvent::Ended || e == VoiceEvent::Failed) Ended(v.Id());
           }),
      wake_(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      interrupt_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      idle_(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
      failed_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  mic_->SetInterrupt(interrupt_.Get());
  block_.resize(blockFrames_ * channels_);
  runsOutAt_ = Clock::now();
  lead_ = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(options.leadMs));
  thread_ = std::thread([this] { Run(); });
}

PlayerEngine::~PlayerEngine() {
  // What the effect already holds plays out; the key comes up now.
  quit_ = true;
  SetEvent(wake_.Get());
  thread_.join();
  monitor_.reset();
}

void PlayerEngine::AddMonitor(std::unique_ptr<MonitorOutput> monitor) { monitor_ = std::move(monitor); }

int PlayerEngine::Start(const VoiceRequest& request) { return StartTogether({request}).front(); }

std::vector<int> PlayerEngine::StartTogether(const std::vector<VoiceRequest>& requests) {
  std::vector<std::pair<int, VoiceRequest>> voices;
  {
    std::lock_guard<std::mutex> lock(lock_);
    for (const VoiceRequest& request : requests) {
      voices.emplace_back(nextId_++, request);
      playing_.insert(voices.back().first);
    }
    ResetEvent(idle_.Get());
  }
  bus_.Add(voices);
  if (monitor_) monitor_->Bus().Add(voices);
  SetEvent(wake_.Get());
  std::vector<int> ids;
  for (const auto& voice : voices) ids.push_back(voice.first);
  return ids;
}

void PlayerEngine::Stop(int id) {
  bus_.Stop(id);
  if (monitor_) monitor_->Bus().Stop(id);
  Ended(id);
  SetEvent(wake_.Get());
}

void PlayerEngine::StopAll() {
  bus_.StopAll();
  if (monitor_) monitor_->Bus().StopAll();
  {
    std::lock_guard<std::mutex> lock(lock_);
    playing_.clear();
  }
  stopAll_ = true;
  SetEvent(interrupt_.Get());
}

void PlayerEngine::Abort() {
  quit_ = true;
  StopAll();
}

bool PlayerEngine::Playing(int id) const {
  std::lock_guard<std::mutex> lock(lock_);
  return playing_.count(id) != 0;
}

void PlayerEngine::Ended(int id) {
  std::lock_guard<std::mutex> lock(lock_);
  playing_.erase(id);
}

PlayerStatus PlayerEngine::WaitIdle(HANDLE interrupt) {
  HANDLE events[] = {failed_.Get(), idle_.Get(), interrupt};
  const DWORD r = WaitForMultipleObjects(interrupt != nullptr ? 3 : 2, events, FALSE, INFINITE);
  if (r == WAIT_OBJECT_0) return failure_;
  return r == WAIT_OBJECT_0 + 1 ? PlayerStatus::Ok : PlayerStatus::Interrupted;
}

PlayerStatus PlayerEngine::Failure() const {
  return WaitForSingleObject(failed_.Get(), 0) == WAIT_OBJECT_0 ? failure_ : PlayerStatus::Ok;
}

void PlayerEngine::WaitUntil(Clock::time_point when) {
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now()).count();
  if (ms <= 0) return;
  if (!awaitingStart_) {
    WaitAny({interrupt_.Get(), wake_.Get()}, static_cast<DWORD>(ms));
    return;
  }
  // The effect's look after the block was sent: the stream took it into a
  // chunk now, so its sound runs out one block from now.
  HANDLE look = mic_->LookEvent();
  HANDLE events[] = {interrupt_.Get(), wake_.Get(), look};
  if (WaitForMultipleObjects(3, events, FALSE, static_cast<DWORD>(ms)) == WAIT_OBJECT_0 + 2) {
    ResetEvent(look);
    awaitingStart_ = false;
    runsOutAt_ = Clock::now() + lastBlock_;
  }
}

void PlayerEngine::Run() {
  while (true) {
    if (stopAll_.exchange(false)) {
      // Withdraws a block not yet taken and drops what the effect queued.
      mic_->Abandon();
      keys_.Release();
      runsOutAt_ = Clock::now();
      lastBlock_ = {};
      awaitingStart_ = false;
      streaming_ = false;
      ResetEvent(interrupt_.Get());
    }
    if (quit_) break;
    const auto now = Clock::now();
    if (!bus_.Busy() && !bus_.Pending()) {
      lastBlock_ = {};
      streaming_ = false;
      const auto release = runsOutAt_ + std::chrono::milliseconds(options_.pttTailMs);
      if (keys_.Held() && now >= release) keys_.Release();
      if (keys_.Held()) {
        WaitUntil(release);
      } else {
        {
          std::lock_guard<std::mutex> lock(lock_);
          if (playing_.empty()) SetEvent(idle_.Get());
        }
        WaitAny({interrupt_.Get(), wake_.Get()}, INFINITE);
      }
      continue;
    }
    // The next block is due `lead` before the effect runs out of sound (it
    // then waits in the queue for that chunk boundary only), earlier by what
    // making a block has cost of late and by what late blocks have taught.
    const auto due = runsOutAt_ - lead_ - 2 * makeCost_;
    if (now < due) {
      WaitUntil(due);
      continue;
    }
    const PlayerStatus status = WriteBlock();
    if (status == PlayerStatus::Interrupted) continue;  // a stop: handled at the top
    if (status != PlayerStatus::Ok) {
      failure_ = status;
      keys_.Release();
      SetEvent(failed_.Get());
      listener_({0, VoiceEvent::OutputFailed, L"", 0, 0, mic_->Explain(status)});
      return;
    }
  }
  keys_.Release();
}

PlayerStatus PlayerEngine::WriteBlock() {
  const auto started = Clock::now();
  const auto needed = runsOutAt_;  // when the effect runs out of sound
  const size_t frames = bus_.Mix(block_.data(), blockFrames_);
  // The cost of making a block, remembered at its highest and let go slowly.
  makeCost_ = std::max(Clock::now() - started, makeCost_ * 15 / 16);
  if (frames == 0) {
    streaming_ = false;
    return PlayerStatus::Ok;
  }
  // When Windows refuses the key (another desktop has the input), the sound still plays.
  if (options_.pushToTalk && !keys_.Held()) keys_.Press(options_.pttKey);
  const PlayerStatus status = mic_->Send(block_.data(), frames * channels_, options_.sendTimeoutMs);
  if (status != PlayerStatus::Ok) return status;
  const auto taken = Clock::now();
  if (!anyTaken_) {
    anyTaken_ = true;
    EngineEvent event{0, VoiceEvent::FirstBlockTaken, L"", 0, 0, ""};
    event.takenUs = tools::MonotonicMicroseconds();
    listener_(event);
  }
  const auto length = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(static_cast<double>(frames) / rate_));
  // A block that reached the effect after its sound ran out left a gap: the
  // next ones go a period earlier, up to a whole block ahead.
  if (streaming_ && taken > needed) lead_ = std::min<Clock::duration>(lead_ + std::chrono::milliseconds(10), length);
  streaming_ = true;
  // Until the effect's next look tells when the block starts, it is assumed
  // to play after what it found queued.
  runsOutAt_ = std::max(runsOutAt_, taken) + length;
  awaitingStart_ = true;
  lastBlock_ = length;
  return PlayerStatus::Ok;
}

}  // namespace quillon::player
