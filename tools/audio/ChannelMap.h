// Maps frames of one channel count to another, by one stated rule:
//   - the same count: unchanged;
//   - one channel: copied to every channel;
//   - into two channels from three or more, taken in WAVE's speaker order
//     (front left, front right, front centre, LFE, back left, back right, side
//     left, side right): left = FL + 0.7071 FC + 0.7071 BL + 0.7071 SL and right
//     likewise, the LFE and channels past the eighth left out, each side scaled
//     so that its weights add up to 1;
//   - into one channel from two or more: the mean of the two-channel result;
//   - any other pair: channel by channel in order, extra stream channels
//     silent, extra file channels left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillon::audio {

class ChannelMap {
 public:
  ChannelMap(uint32_t from, uint32_t to);

  // Weight of input channel `in` in output channel `out`.
  float Weight(uint32_t out, uint32_t in) const { return weights_[static_cast<size_t>(out) * from_ + in]; }

  // `in` holds `frames` frames of `from` channels, `out` room for `to` channels.
  void Apply(const float* in, size_t frames, float* out) const;

 private:
  uint32_t from_, to_;
  bool identity_;
  std::vector<float> weights_;  // to_ rows of from_ weights
};

}  // namespace quillon::audio
