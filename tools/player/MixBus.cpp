#include "player/MixBus.h"

#include <algorithm>
#include <utility>

namespace quillon::player {

MixBus::MixBus(uint32_t rate, uint32_t channels, float gain, size_t maxFrames)
    : rate_(rate), channels_(channels), gain_(gain), limiter_(channels, rate) {
  voices_.reserve(kMaxVoices);
  inbox_.reserve(64);
  work_.resize((maxFrames + limiter_.Lookahead()) * channels);
  limiter_.Reserve(maxFrames);
}

void MixBus::Add(const std::vector<VoiceFeed*>& voices) {
  if (voices.empty()) return;
  std::lock_guard<std::mutex> lock(inboxLock_);
  for (size_t i = 0; i < voices.size(); ++i) {
    inbox_.push_back({Command::Add, voices[i]->Id(), voices[i], i + 1 == voices.size()});
  }
  ++pendingAdds_;
}

void MixBus::Stop(int id) {
  std::lock_guard<std::mutex> lock(inboxLock_);
  inbox_.push_back({Command::Stop, id, nullptr, false});
}

void MixBus::StopAll() {
  std::lock_guard<std::mutex> lock(inboxLock_);
  inbox_.push_back({Command::StopAll, 0, nullptr, false});
}

void MixBus::TakeInbox() {
  std::unique_lock<std::mutex> lock(inboxLock_, std::try_to_lock);
  if (!lock.owns_lock()) return;  // someone is adding: taken next time
  for (const Command& c : inbox_) {
    if (c.kind == Command::Add) {
      if (voices_.size() < kMaxVoices) {
        voices_.push_back(c.feed);
      } else {
        c.feed->Release(true);  // too many at once: it is stopped
      }
      if (c.last) --pendingAdds_;
      continue;
    }
    // A stopped voice ends at once; sound mixed ahead of it still plays.
    std::erase_if(voices_, [&](VoiceFeed* v) {
      const bool stop = c.kind == Command::StopAll || v->Id() == c.id;
      if (stop) v->Release(true);
      return stop;
    });
    if (c.kind == Command::StopAll) {
      aheadFrames_ = 0;
      soundUntil_ = 0;
    }
  }
  inbox_.clear();  // keeps its room
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
  if (work_.size() < total * channels_) work_.resize(total * channels_);
  std::fill(work_.begin() + static_cast<ptrdiff_t>(aheadFrames_ * channels_),
            work_.begin() + static_cast<ptrdiff_t>(total * channels_), 0.0f);
  const size_t fresh = total - aheadFrames_;
  float* into = work_.data() + aheadFrames_ * channels_;
  const bool several = voices_.size() > 1;
  for (VoiceFeed* voice : voices_) {
    const size_t added = voice->AddTo(into, fresh);
    soundUntil_ = std::max(soundUntil_, aheadFrames_ + added);
  }
  // A voice whose decoder is behind stays, silent for now; one that has
  // handed over all of its sound ends.
  std::erase_if(voices_, [](VoiceFeed* v) {
    const bool finished = v->Finished();
    if (finished) v->Release(false);
    return finished;
  });
  if (!voices_.empty()) soundUntil_ = total;
  if (gain_ != 1.0f) {
    for (size_t i = 0; i < fresh * channels_; ++i) into[i] *= gain_;
  }
  limiter_.Apply(work_.data(), frames, several);
  std::copy_n(work_.begin(), frames * channels_, out);
  // The look-ahead frames move to the front for next time.
  std::copy(work_.begin() + static_cast<ptrdiff_t>(frames * channels_),
            work_.begin() + static_cast<ptrdiff_t>(total * channels_), work_.begin());
  aheadFrames_ = ahead;
  const size_t sound = std::min(frames, soundUntil_);
  soundUntil_ -= sound;
  return sound;
}

}  // namespace quillon::player
