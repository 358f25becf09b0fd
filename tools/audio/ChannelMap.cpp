#include "audio/ChannelMap.h"

#include <algorithm>

namespace quillon::audio {
namespace {

constexpr float kHalfPower = 0.70710678f;
enum Speaker { FL, FR, FC, LFE, BL, BR, SL, SR };

// The unscaled weight of speaker `in` in the left (side 0) or right (side 1) output.
float StereoWeight(int side, uint32_t in) {
  switch (in) {
    case FL: return side == 0 ? 1.0f : 0.0f;
    case FR: return side == 1 ? 1.0f : 0.0f;
    case FC: return kHalfPower;
    case BL: case SL: return side == 0 ? kHalfPower : 0.0f;
    case BR: case SR: return side == 1 ? kHalfPower : 0.0f;
    default: return 0.0f;  // LFE, and channels past the eighth
  }
}

}  // namespace

ChannelMap::ChannelMap(uint32_t from, uint32_t to)
    : from_(from), to_(to), identity_(from == to), weights_(static_cast<size_t>(from) * to, 0.0f) {
  auto weight = [&](uint32_t out, uint32_t in) -> float& { return weights_[static_cast<size_t>(out) * from_ + in]; };
  if (from == to) {
    for (uint32_t c = 0; c < to; ++c) weight(c, c) = 1.0f;
  } else if (from == 1) {
    for (uint32_t c = 0; c < to; ++c) weight(c, 0) = 1.0f;
  } else if (to <= 2) {
    float stereo[2][8] = {};
    for (int side = 0; side < 2; ++side) {
      float sum = 0.0f;
      for (uint32_t in = 0; in < std::min<uint32_t>(from, 8); ++in) sum += StereoWeight(side, in);
      for (uint32_t in = 0; in < std::min<uint32_t>(from, 8); ++in) stereo[side][in] = StereoWeight(side, in) / sum;
    }
    for (uint32_t in = 0; in < std::min<uint32_t>(from, 8); ++in) {
      if (to == 2) {
        weight(0, in) = stereo[0][in];
        weight(1, in) = stereo[1][in];
      } else {
        weight(0, in) = 0.5f * (stereo[0][in] + stereo[1][in]);
      }
    }
  } else {
    for (uint32_t c = 0; c < std::min(from, to); ++c) weight(c, c) = 1.0f;
  }
}

void ChannelMap::Apply(const float* in, size_t frames, float* out) const {
  if (identity_) {
    std::copy_n(in, frames * to_, out);
    return;
  }
  for (size_t f = 0; f < frames; ++f, in += from_, out += to_) {
    for (uint32_t o = 0; o < to_; ++o) {
      const float* w = &weights_[static_cast<size_t>(o) * from_];
      float sum = 0.0f;
      for (uint32_t i = 0; i < from_; ++i) sum += w[i] * in[i];
      out[o] = sum;
    }
  }
}

}  // namespace quillon::audio
