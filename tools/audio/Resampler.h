// Changes the rate of interleaved float frames with libsoxr at its very high
// quality, a piece at a time.
#pragma once

#include <soxr.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quillon::audio {

class Resampler {
 public:
  // Rates in frames per second; the same rate passes frames through untouched.
  bool Open(uint32_t fromRate, uint32_t toRate, uint32_t channels, std::string& error);

  // Appends to `out` what `frames` more input frames yield.
  void Process(const float* in, size_t frames, std::vector<float>& out);
  // Appends the frames still held back once the input has ended.
  void Finish(std::vector<float>& out);

 private:
  struct Deleter {
    void operator()(soxr* resampler) const { soxr_delete(resampler); }
  };
  void Run(const float* in, size_t frames, std::vector<float>& out);

  std::unique_ptr<soxr, Deleter> soxr_;
  uint32_t channels_ = 0;
  double ratio_ = 1.0;
};

}  // namespace quillon::audio
