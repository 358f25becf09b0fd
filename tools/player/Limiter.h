// Keeps a mix of several sounds within full scale without clipping it sample
// by sample.
//
// The rule: frame k needs the gain r[k] = 1 when its largest magnitude p (over
// its channels) is at most 1, and 0.999 / p when it is above. The gain held
// for frame m is h[m], the smallest r over the frames m to m + L - 1 (L frames
// of look-ahead, 2 ms), raised from the previous frame's by at most 1/R per
// frame (R frames of release, 200 ms). The gain applied to frame n is the mean
// of h over the frames n - L + 1 to n. Each of those windows holds frame n, so
// the mean is at most r[n]: no sample leaves above full scale, and the gain
// moves smoothly, falling over L frames before a peak. Where no frame within
// reach is above full scale the gain is exactly 1 and the mix passes
// unchanged, bit for bit. It works on sums: a sound playing alone passes as
// loud as its file and volume make it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillon::player {

class Limiter {
 public:
  Limiter(uint32_t channels, uint32_t rate);

  // Frames the limiter must see past the ones it limits.
  size_t Lookahead() const { return lookahead_; }

  // Limits the first `frames` frames of `mix` in place; `mix` holds
  // `frames` + Lookahead() frames, and the ones after are only looked at.
  // Successive calls continue one stream. With `engaged` false (one sound
  // alone) nothing is needed of the frames: a gain still held back rises
  // back to 1 as after a peak, and from there the mix passes as it is.
  void Apply(float* mix, size_t frames, bool engaged = true);
  // Makes room for calls of up to `frames` frames, so that they allocate nothing.
  void Reserve(size_t frames) { needed_.reserve(frames + lookahead_); }

 private:
  static constexpr float kCeiling = 0.999f;

  uint32_t channels_;
  size_t lookahead_;
  float releaseStep_;
  std::vector<float> needed_;   // r of the frames being looked at
  std::vector<float> held_;     // h of the last L frames, a ring
  size_t heldAt_ = 0;           // next place in the ring
  size_t heldBelowOne_ = 0;     // frames of the ring with h below 1
  double heldSum_ = 0;          // sum of the ring
  float lastHeld_ = 1.0f;
};

}  // namespace quillon::player
