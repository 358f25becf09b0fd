// What `quillon play` costs before it sends anything:
//   - resampling quality: a 1 kHz sine at 44.1 kHz taken to 48 kHz, against
//     the ideal sine (SNR in dB);
//   - each file given: decoded and converted to 48 kHz stereo block by block,
//     as play does, as a multiple of real time, with the peak private bytes.
//
//   quillon_bench_convert [FILE...]
#include "audio/Resampler.h"
#include "audio/SoundSource.h"
#include "common/ToolSupport.h"

#include <windows.h>
#include <psapi.h>
#include <shellapi.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

using namespace quillon;

namespace {

constexpr double kPi = 3.14159265358979323846;

// The output against the best-fitting 1 kHz sine (amplitude and phase fitted
// by least squares), away from the edges where the filter starts and stops.
double SineSnr() {
  const uint32_t from = 44100, to = 48000;
  std::vector<float> in(from * 2);
  for (size_t n = 0; n < in.size(); ++n) in[n] = static_cast<float>(0.5 * std::sin(2 * kPi * 1000.0 * n / from));
  audio::Resampler resampler;
  std::string error;
  resampler.Open(from, to, 1, error);
  std::vector<float> out;
  resampler.Process(in.data(), in.size(), out);
  resampler.Finish(out);
  double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0;
  const size_t begin = to / 10, end = out.size() - to / 10;
  for (size_t n = begin; n < end; ++n) {
    const double s = std::sin(2 * kPi * 1000.0 * n / to), c = std::cos(2 * kPi * 1000.0 * n / to);
    ss += s * s, sc += s * c, cc += c * c, ys += out[n] * s, yc += out[n] * c;
  }
  const double det = ss * cc - sc * sc, a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
  double signal = 0, noise = 0;
  for (size_t n = begin; n < end; ++n) {
    const double ideal = a * std::sin(2 * kPi * 1000.0 * n / to) + b * std::cos(2 * kPi * 1000.0 * n / to);
    signal += ideal * ideal;
    noise += (out[n] - ideal) * (out[n] - ideal);
  }
  std::printf("resampling 1 kHz sine 44100 -> 48000 Hz: %zu frames out of %zu, SNR %.1f dB\n", out.size(), in.size(),
              10 * std::log10(signal / noise));
  return 10 * std::log10(signal / noise);
}

size_t PeakPrivateBytes() {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof(counters);
  GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof(counters));
  return counters.PeakPagefileUsage;
}

void Convert(const std::wstring& path) {
  const auto start = std::chrono::steady_clock::now();
  audio::SoundSource source;
  std::string error;
  if (!source.Open(path, error) || !source.Convert(48000, 2, 1.0f, error)) {
    std::printf("%s: %s\n", tools::Narrow(path).c_str(), error.c_str());
    return;
  }
  std::vector<float> block(4800 * 2);
  size_t frames = 0;
  while (const size_t n = source.Read(block.data(), 4800)) frames += n;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double sound = frames / 48000.0;
  std::printf("%s (%s, %u Hz, %u ch): %.1f s of sound in %.2f s: %.0fx real time; peak private bytes %.1f MB\n",
              tools::Narrow(path).c_str(), source.File().FormatName().c_str(), source.File().Rate(),
              source.File().Channels(), sound, seconds, sound / seconds, PeakPrivateBytes() / 1048576.0);
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  std::printf("peak private bytes at start: %.1f MB\n", PeakPrivateBytes() / 1048576.0);
  SineSnr();
  for (int i = 1; i < argc; ++i) Convert(argv[i]);
  LocalFree(argv);
  return 0;
}
