// Reading and writing WAV files as interleaved float32 samples.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillon::tools {

struct WavData {
  uint32_t rate = 0;
  uint16_t channels = 0;
  bool isFloat = false;       // the file's own sample type
  uint16_t bitsPerSample = 0;
  std::vector<float> samples;  // interleaved, converted to float32
};

// Reads PCM (8/16/24/32-bit) or IEEE float (32-bit) WAV, plain or extensible.
// On failure returns false and says why in `error`.
bool ReadWav(const std::wstring& path, WavData& wav, std::string& error);

// Writes 32-bit float WAV.
bool WriteWav(const std::wstring& path, uint32_t rate, uint16_t channels, const std::vector<float>& samples);

// "48000 Hz, 2 channels, float32" and the like.
std::string DescribeFormat(uint32_t rate, uint32_t channels, bool isFloat, uint32_t bits);

}  // namespace quillon::tools
