#include "player/PlayerEngine.h"

#include "common/ToolSupport.h"
#include "player/MonitorOutput.h"
#include "player/ProAudioThread.h"

#include <algorithm>
#include <cmath>

namespace quillon::player {
namespace {

// How often the reporter looks at the voices while any plays.
constexpr DWORD kReportMs = 20;
// How much of a voice is decoded ahead of the mix, at least: far more than a
// slow moment of a decoder on a busy machine.
constexpr double kAheadSeconds = 0.5;

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
      bus_(rate_, channels_, 1.0f, blockFrames_),
      wake_(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      interrupt_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      idle_(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
      failed_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      news_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
  mic_->SetInterrupt(interrupt_.Get());
  block_.resize(blockFrames_ * channels_);
  runsOutAt_ = Clock::now();
  lead_ = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(options.leadMs));
  thread_ = std::thread([this] { Run(); });
  reporter_ = std::thread([this] { Report(); });
}

PlayerEngine::~PlayerEngine() {
  // What the effect already holds plays out; the key comes up now.
  quit_ = true;
  SetEvent(wake_.Get());
  thread_.join();
  quitReporter_ = true;
  SetEvent(news_.Get());
  reporter_.join();
  // A decoder that is just ready looks at the monitor under the lock.
  std::unique_ptr<MonitorOutput> monitor;
  {
    std::lock_guard<std::mutex> lock(lock_);
    monitor.swap(monitor_);
  }
  monitor.reset();
  // No output reads the voices any more: every decoder is told to end, then
  // each is waited for, outside the lock, which a decoder that is just ready
  // takes (and then finds its group gone).
  std::map<int, Tracked> voices;
  {
    std::lock_guard<std::mutex> lock(lock_);
    voices.swap(voices_);
  }
  for (auto& [id, t] : voices) t.voice->Stop();
}

void PlayerEngine::AddMonitor(std::unique_ptr<MonitorOutput> monitor) { monitor_ = std::move(monitor); }

int PlayerEngine::Start(const VoiceRequest& request) { return StartTogether({request}).front(); }

std::vector<int> PlayerEngine::StartTogether(const std::vector<VoiceRequest>& requests) {
  // Each output gets the voice in its own format, decoded well ahead of its
  // mix; the microphone's first blocks are ready before the voice joins.
  std::vector<OutputFormat> outputs;
  const size_t ahead = static_cast<size_t>(rate_ * kAheadSeconds);
  outputs.push_back({rate_, channels_, std::max(ahead, 4 * blockFrames_), 2 * blockFrames_});
  auto group = std::make_shared<Group>();
  group->waiting = requests.size();
  OutputFormat monitor;
  if (monitor_ && monitor_->Current(monitor, group->monitorStream)) {
    outputs.push_back({monitor.rate, monitor.channels, static_cast<size_t>(monitor.rate * kAheadSeconds),
                       monitor.rate / 20});
  }
  {
    std::lock_guard<std::mutex> lock(lock_);
    for (const VoiceRequest& request : requests) {
      const int id = nextId_++;
      Tracked& t = voices_[id];
      t.voice = std::make_unique<Voice>(id, request, outputs);
      t.monitorStream = group->monitorStream;
      group->voices.push_back(id);
      playing_.insert(id);
      ++live_;
    }
    ResetEvent(idle_.Get());
    // Started under the lock, which the reporter holds to let go of a voice:
    // none goes before its thread is known.
    for (int id : group->voices) {
      voices_[id].voice->Start([this, group] {
        if (--group->waiting == 0) Launch(*group);
      });
    }
  }
  SetEvent(news_.Get());
  return group->voices;
}

void PlayerEngine::Launch(const Group& group) {
  std::vector<VoiceFeed*> mic, monitor;
  {
    // Under the table's lock, so that a stop either finds the voices in the
    // mixes' inboxes or keeps them out.
    std::lock_guard<std::mutex> lock(lock_);
    for (int id : group.voices) {
      const auto found = voices_.find(id);
      if (found == voices_.end()) continue;  // the engine is ending
      Voice* voice = found->second.voice.get();
      if (voice->StopRequested()) {
        for (size_t output = 0; output < voice->Outputs(); ++output) voice->Feed(output).Release(true);
        continue;
      }
      mic.push_back(&voice->Feed(0));
      if (voice->Outputs() > 1) monitor.push_back(&voice->Feed(1));
    }
    bus_.Add(mic);
    // A monitor whose stream ended meanwhile never hears them.
    if (!monitor.empty() && (!monitor_ || !monitor_->Add(monitor, group.monitorStream))) {
      for (VoiceFeed* feed : monitor) feed->Release(true);
    }
  }
  SetEvent(wake_.Get());
  SetEvent(news_.Get());
}

void PlayerEngine::Stop(int id) {
  {
    std::lock_guard<std::mutex> lock(lock_);
    if (const auto found = voices_.find(id); found != voices_.end()) found->second.voice->Stop();
    playing_.erase(id);
  }
  bus_.Stop(id);
  if (monitor_) monitor_->Stop(id);
  SetEvent(wake_.Get());
  SetEvent(news_.Get());
}

void PlayerEngine::StopAll() {
  {
    std::lock_guard<std::mutex> lock(lock_);
    for (auto& [id, t] : voices_) t.voice->Stop();
    playing_.clear();
  }
  bus_.StopAll();
  if (monitor_) monitor_->StopAll();
  SetEvent(interrupt_.Get());
  SetEvent(news_.Get());
}

void PlayerEngine::Abort() {
  // The stop first: a thread that sees the quit then sees the stop too, and
  // drops what the effect holds before it ends.
  StopAll();
  quit_ = true;
  SetEvent(wake_.Get());
}

bool PlayerEngine::Playing(int id) const {
  std::lock_guard<std::mutex> lock(lock_);
  return playing_.count(id) != 0;
}

PlayerStatus PlayerEngine::WaitIdle(HANDLE interrupt) {
  while (true) {
    if (const auto status = WaitIdle(interrupt, nullptr)) return *status;
  }
}

std::optional<PlayerStatus> PlayerEngine::WaitIdle(HANDLE interrupt, HANDLE wake) {
  HANDLE events[4] = {failed_.Get(), idle_.Get()};
  DWORD count = 2;
  const DWORD interruptAt = interrupt != nullptr ? count : MAXDWORD;
  if (interrupt != nullptr) events[count++] = interrupt;
  if (wake != nullptr) events[count++] = wake;
  while (true) {
    const DWORD r = WaitForMultipleObjects(count, events, FALSE, INFINITE);
    if (r == WAIT_OBJECT_0) return failure_;
    if (r == WAIT_OBJECT_0 + interruptAt) return PlayerStatus::Interrupted;
    if (r != WAIT_OBJECT_0 + 1) return std::nullopt;
    if (live_.load() == 0) return PlayerStatus::Ok;
    // The microphone's thread said idle the moment a voice started; it takes
    // that back at once (a voice counts itself before it resets the event).
    Sleep(1);
  }
}

PlayerStatus PlayerEngine::Failure() const {
  return WaitForSingleObject(failed_.Get(), 0) == WAIT_OBJECT_0 ? failure_ : PlayerStatus::Ok;
}

void PlayerEngine::Tell(EngineEvent event) {
  if (listener_) listener_(event);
}

void PlayerEngine::Report() {
  bool firstTold = false, failureTold = false;
  while (!quitReporter_) {
    bool any;
    {
      std::lock_guard<std::mutex> lock(lock_);
      any = !voices_.empty();
    }
    WaitForSingleObject(news_.Get(), any ? kReportMs : INFINITE);
    if (quitReporter_) break;
    if (const int64_t taken = firstTakenUs_.load(); taken >= 0 && !firstTold) {
      firstTold = true;
      EngineEvent event{0, VoiceEvent::FirstBlockTaken};
      event.takenUs = taken;
      Tell(event);
    }
    if (!failureTold && Failure() != PlayerStatus::Ok) {
      // No voice plays on, and none reports any more: their decoders end.
      failureTold = true;
      {
        std::lock_guard<std::mutex> lock(lock_);
        for (auto& [id, t] : voices_) t.voice->Stop();
      }
      EngineEvent event{0, VoiceEvent::OutputFailed};
      event.error = mic_->Explain(failure_);
      Tell(event);
    }
    if (failureTold) continue;
    std::vector<Tracked*> tracked;
    {
      std::lock_guard<std::mutex> lock(lock_);
      for (auto& [id, t] : voices_) tracked.push_back(&t);
    }
    // Only this thread erases entries, so the pointers stay good meanwhile.
    std::vector<int> gone;
    for (Tracked* t : tracked) {
      if (ReportVoice(*t)) gone.push_back(t->voice->Id());
    }
    if (gone.empty()) continue;
    std::vector<std::unique_ptr<Voice>> ended;  // their decoders are joined outside the lock
    {
      std::lock_guard<std::mutex> lock(lock_);
      for (int id : gone) {
        ended.push_back(std::move(voices_[id].voice));
        voices_.erase(id);
      }
    }
  }
}

bool PlayerEngine::ReportVoice(Tracked& t) {
  Voice& voice = *t.voice;
  VoiceFeed& mic = voice.Feed(0);
  // Released first: once it is, the frames read are final.
  const bool released = mic.Released();
  const uint64_t played = mic.FramesRead();
  const double rate = voice.Rate(0);
  const bool stopped = released && (mic.WasStopped() || voice.StopRequested());
  const auto event = [&](VoiceEvent kind) {
    EngineEvent e{voice.Id(), kind, t.file};
    e.seconds = static_cast<double>(played - std::min(played, t.fileFrom)) / rate;
    e.totalSeconds = t.fileSeconds;
    return e;
  };
  if (!t.ended) {
    const std::vector<Voice::Mark> marks = voice.MarksFrom(t.marksSeen);
    for (const Voice::Mark& mark : marks) {
      // A file has started once some of it was played (or the voice ended
      // there); a stopped voice reports nothing past where it stopped.
      const bool reached = mark.kind == Voice::Mark::Kind::Started ? mark.at < played || (released && !stopped)
                                                                   : mark.at <= played;
      if (!reached || (stopped && mark.at == played && mark.kind != Voice::Mark::Kind::Ended)) break;
      ++t.marksSeen;
      switch (mark.kind) {
        case Voice::Mark::Kind::Started: {
          t.inFile = true;
          t.file = voice.Request().files[mark.file];
          t.fileFrom = mark.at;
          t.fileSeconds = mark.seconds;
          t.reported = mark.at;
          EngineEvent e = event(VoiceEvent::FileStarted);
          e.seconds = 0;
          e.format = mark.format;
          e.fileRate = mark.rate;
          e.fileChannels = mark.channels;
          Tell(e);
          break;
        }
        case Voice::Mark::Kind::Ended: {
          t.inFile = false;
          t.fileSeconds = mark.seconds;
          EngineEvent e = event(VoiceEvent::FileEnded);
          e.seconds = mark.seconds;
          Tell(e);
          break;
        }
        case Voice::Mark::Kind::Failed: {
          if (mark.file < voice.Request().files.size()) t.file = voice.Request().files[mark.file];
          EngineEvent e = event(VoiceEvent::Failed);
          e.error = mark.error;
          e.midFile = t.inFile;
          if (!t.inFile) e.seconds = 0;
          t.ended = true;
          Tell(e);
          break;
        }
      }
      if (t.ended) break;
    }
    if (!t.ended && t.inFile && played > t.reported) {
      t.reported = played;
      // The length of a file that declares none is known once it was decoded to its end.
      if (t.fileSeconds == 0) {
        for (const Voice::Mark& mark : voice.MarksFrom(t.marksSeen)) {
          if (mark.kind == Voice::Mark::Kind::Ended) {
            t.fileSeconds = mark.seconds;
            break;
          }
        }
      }
      Tell(event(VoiceEvent::Progress));
    }
    if (!t.ended && released) {
      t.ended = true;
      Tell(event(stopped ? VoiceEvent::Stopped : VoiceEvent::Ended));
    }
    if (t.ended) {
      {
        std::lock_guard<std::mutex> lock(lock_);
        playing_.erase(voice.Id());
      }
      --live_;
      SetEvent(wake_.Get());
    }
  }
  // Let go of only when no output reads it any more: the microphone's mix
  // released it, and each monitor's did or its stream ended.
  if (!t.ended || !released) return false;
  for (size_t output = 1; output < voice.Outputs(); ++output) {
    if (!voice.Feed(output).Released() && monitor_ && monitor_->Reads(t.monitorStream)) return false;
  }
  voice.Stop();
  return true;
}

void PlayerEngine::WaitUntil(Clock::time_point when) {
  wokeLate_ = {};
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now()).count();
  if (ms <= 0) return;
  // The effect's look after the block was sent: the stream took it into a
  // chunk now, so its sound runs out one block from now.
  HANDLE look = mic_->LookEvent();
  HANDLE events[] = {interrupt_.Get(), wake_.Get(), look};
  const DWORD woke = WaitForMultipleObjects(awaitingStart_ ? 3 : 2, events, FALSE, static_cast<DWORD>(ms));
  if (woke == WAIT_TIMEOUT) {
    // Beyond the wait's own rounding up to a whole millisecond.
    wokeLate_ = std::max(Clock::duration{}, Clock::now() - when - std::chrono::milliseconds(1));
  } else if (woke == WAIT_OBJECT_0 + 2) {
    ResetEvent(look);
    awaitingStart_ = false;
    runsOutAt_ = Clock::now() + lastBlock_;
  }
}

void PlayerEngine::Run() {
  ProAudioThread proAudio;
  while (true) {
    // Read before the stop: an abort's stop came before its quit.
    const bool quitting = quit_;
    // The event itself says a stop came: reset only once seen, a stop that
    // comes after is seen on the next round.
    if (WaitForSingleObject(interrupt_.Get(), 0) == WAIT_OBJECT_0) {
      ResetEvent(interrupt_.Get());
      // Withdraws a block not yet taken and drops what the effect queued.
      mic_->Abandon();
      keys_.Release();
      runsOutAt_ = Clock::now();
      lastBlock_ = {};
      awaitingStart_ = false;
      streaming_ = false;
    }
    if (quitting) break;
    const auto now = Clock::now();
    if (!bus_.Busy() && !bus_.Pending()) {
      lastBlock_ = {};
      streaming_ = false;
      const auto release = runsOutAt_ + std::chrono::milliseconds(options_.pttTailMs);
      if (keys_.Held() && now >= release) keys_.Release();
      if (keys_.Held()) {
        WaitUntil(release);
      } else {
        // Looked at again after: a voice started meanwhile resets the event
        // after it counted itself, so one of the two sees it.
        if (live_.load() == 0) {
          SetEvent(idle_.Get());
          if (live_.load() != 0) ResetEvent(idle_.Get());
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
    // How late this thread woke for a block that streams on: on a busy
    // machine it wakes after its time, and the next blocks go earlier by that.
    const PlayerStatus status = WriteBlock(streaming_ ? std::exchange(wokeLate_, {}) : Clock::duration{});
    if (status == PlayerStatus::Interrupted) continue;  // a stop: handled at the top
    if (status != PlayerStatus::Ok) {
      failure_ = status;
      keys_.Release();
      SetEvent(failed_.Get());
      SetEvent(news_.Get());
      return;
    }
  }
  keys_.Release();
}

PlayerStatus PlayerEngine::WriteBlock(Clock::duration late) {
  const auto started = Clock::now();
  const auto needed = runsOutAt_;  // when the effect runs out of sound
  const size_t frames = bus_.Mix(block_.data(), blockFrames_);
  // The cost of making a block (waking late included), remembered at its
  // highest and let go slowly.
  const auto cost = Clock::now() - started;
  makeCost_ = std::max(late + cost, makeCost_ * 15 / 16);
  const int64_t costUs = std::chrono::duration_cast<std::chrono::microseconds>(cost).count();
  if (costUs > slowestMixUs_.load(std::memory_order_relaxed)) slowestMixUs_.store(costUs, std::memory_order_relaxed);
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
    firstTakenUs_ = tools::MonotonicMicroseconds();
    SetEvent(news_.Get());
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
