#include "audio/Resampler.h"

#include <cmath>

namespace quillon::audio {

bool Resampler::Open(uint32_t fromRate, uint32_t toRate, uint32_t channels, std::string& error) {
  channels_ = channels;
  ratio_ = static_cast<double>(toRate) / fromRate;
  soxr_.reset();
  if (fromRate == toRate) return true;
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  soxr_error_t failure = nullptr;
  soxr_.reset(soxr_create(fromRate, toRate, channels, &failure, &io, &quality, nullptr));
  if (failure != nullptr) {
    error = std::string("cannot resample: ") + failure;
    soxr_.reset();
    return false;
  }
  return true;
}

void Resampler::Process(const float* in, size_t frames, std::vector<float>& out) {
  if (!soxr_) {
    out.insert(out.end(), in, in + frames * channels_);
    return;
  }
  Run(in, frames, out);
}

void Resampler::Finish(std::vector<float>& out) {
  if (soxr_) Run(nullptr, 0, out);
}

// Gives soxr room for what the input should yield and a little more, and asks
// again while it fills all of it (with no input that means: until it is drained).
void Resampler::Run(const float* in, size_t frames, std::vector<float>& out) {
  size_t used = 0;
  while (true) {
    const size_t room = static_cast<size_t>(std::ceil((frames - used) * ratio_)) + 256;
    const size_t start = out.size();
    out.resize(start + room * channels_);
    size_t taken = 0, made = 0;
    soxr_process(soxr_.get(), in == nullptr ? nullptr : in + used * channels_, frames - used, &taken,
                 out.data() + start, room, &made);
    out.resize(start + made * channels_);
    used += taken;
    if (made < room && used == frames) return;
  }
}

}  // namespace quillon::audio
