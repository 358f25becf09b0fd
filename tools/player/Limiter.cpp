#include "player/Limiter.h"

#include <algorithm>
#include <cmath>

namespace quillon::player {

Limiter::Limiter(uint32_t channels, uint32_t rate)
    : channels_(channels),
      lookahead_(std::max<size_t>(1, rate / 500)),
      releaseStep_(1.0f / std::max(1.0f, 0.2f * static_cast<float>(rate))),
      held_(lookahead_, 1.0f),
      heldSum_(static_cast<double>(lookahead_)) {}

void Limiter::Apply(float* mix, size_t frames, bool engaged) {
  const size_t seen = frames + lookahead_;
  needed_.resize(seen);
  bool loud = false;
  for (size_t k = 0; k < seen; ++k) {
    float peak = 0.0f;
    for (uint32_t c = 0; c < channels_; ++c) peak = std::max(peak, std::fabs(mix[k * channels_ + c]));
    const bool over = engaged && peak > 1.0f;
    needed_[k] = over ? kCeiling / peak : 1.0f;
    loud = loud || over;
  }
  // Nothing loud ahead and nothing held back: the block passes untouched.
  if (!loud && heldBelowOne_ == 0) return;

  for (size_t n = 0; n < frames; ++n) {
    float held = 1.0f;
    for (size_t k = n; k < n + lookahead_; ++k) held = std::min(held, needed_[k]);
    held = std::min(held, lastHeld_ + releaseStep_);
    lastHeld_ = held;
    // The ring slides: the oldest h leaves, this frame's comes in.
    const float leaving = held_[heldAt_];
    heldBelowOne_ -= leaving < 1.0f ? 1 : 0;
    heldBelowOne_ += held < 1.0f ? 1 : 0;
    heldSum_ += static_cast<double>(held) - leaving;
    held_[heldAt_] = held;
    heldAt_ = (heldAt_ + 1) % lookahead_;
    if (heldBelowOne_ == 0) {
      heldSum_ = static_cast<double>(lookahead_);  // exact again once all are 1
      continue;
    }
    // The mean is at most needed_[n]; the min only removes rounding.
    const float gain = std::min(static_cast<float>(heldSum_ / static_cast<double>(lookahead_)), needed_[n]);
    for (uint32_t c = 0; c < channels_; ++c) mix[n * channels_ + c] *= gain;
  }
}

}  // namespace quillon::player
