#include "player/MixBus.h"

#include <algorithm>
#include <utility>

namespace quillon::player {

MixBus::MixBus(uint32_t rate, uint32_t channels, float gain, Report report)
    : rate_(rate), channels_(channels), gain_(gain), report_(std::move(report)), limiter_(channels, rate) {}

void MixBus::Add(const std::vector<std::pair<int, VoiceRequest>>& voices) {
  std::lock_guard<std::mutex> lock(inboxLock_);
  for (const auto& [id, request] : voices) inbox_.push_back({Command::Add, id, request});
}

void MixBus::Stop(int id) {
  std::lock_guard<std::mutex> lock(inboxLock_);
  inbox_.push_back({Command::Stop, id, {}});
}

void MixBus::StopAll() {
  std::lock_guard<std::mutex> lock(inboxLock_);
  inbox_.push_back({Command::StopAll, 0, {}});
}

bool MixBus::Pending() const {
  std::lock_guard<std::mutex> lock(inboxLock_);
  return std::any_of(inbox_.begin(), inbox_.end(), [](const Command& c) { return c.kind == Command::Add; });
}

void MixBus::TakeInbox() {
  std::vector<Command> commands;
  {
    std::lock_guard<std::mutex> lock(inboxLock_);
    commands.swap(inbox_);
  }
  for (Command& c : commands) {
    if (c.kind == Command::Add) {
      voices_.push_back(std::make_unique<VoiceStream>(c.id, std::move(c.request), rate_, channels_));
      continue;
    }
    // A stopped voice ends at once; sound mixed ahead of it still plays.
    std::erase_if(voices_, [&](const auto& v) { return c.kind == Command::StopAll || v->Id() == c.id; });
    if (c.kind == Command::StopAll) {
      aheadFrames_ = 0;
      soundUntil_ = 0;
    }
  }
}

size_t MixBus::Mix(float* out, size_t frames) {
  TakeInbox();
  const size_t ahead = limiter_.Lookahead();
  if (voices_.empty() && soundUntil_ == 0) {
    std::fill(out, out + frames * channels_, 0.0f);
    aheadFrames_ = 0;
    return 0;
  }
  // work_ = the frames mixed ahead last time, then silence to add voices into.
  const size_t total = frames + ahead;
  work_.resize(total * channels_);
  std::fill(work_.begin() + static_cast<ptrdiff_t>(aheadFrames_ * channels_), work_.end(), 0.0f);
  const size_t fresh = total - aheadFrames_;
  float* into = work_.data() + aheadFrames_ * channels_;
  const bool several = voices_.size() > 1;
  for (const auto& voice : voices_) {
    const size_t added = voice->AddTo(into, fresh, [&](const VoiceStream& v, VoiceEvent e) { report_(v, e); });
    soundUntil_ = std::max(soundUntil_, aheadFrames_ + added);
    if (!voice->Ended()) report_(*voice, VoiceEvent::Progress);
  }
  std::erase_if(voices_, [&](const auto& v) {
    if (v->Ended() && v->Error().empty()) report_(*v, VoiceEvent::Ended);
    return v->Ended();
  });
  if (!voices_.empty()) soundUntil_ = total;
  if (gain_ != 1.0f) {
    for (size_t i = 0; i < fresh * channels_; ++i) into[i] *= gain_;
  }
  limiter_.Apply(work_.data(), frames, several);
  std::copy_n(work_.begin(), frames * channels_, out);
  // The look-ahead frames move to the front for next time.
  std::copy(work_.begin() + static_cast<ptrdiff_t>(frames * channels_), work_.end(), work_.begin());
  aheadFrames_ = ahead;
  const size_t sound = std::min(frames, soundUntil_);
  soundUntil_ -= sound;
  return sound;
}

}  // namespace quillon::player
