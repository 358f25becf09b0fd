// `quillon play --start --end`: only that part of the file reaches the
// microphone, as sox cuts it, with 5 ms fades where it was cut.
#include "support/QuillonRun.h"

#include <algorithm>
#include <cmath>

namespace quillon::test {
namespace {

constexpr const wchar_t* kMic = L"{0.0.1.00000000}.{f0a70000-0000-4000-8000-00000000007e}";
constexpr size_t kFade = 48000 * 5 / 1000;

// The reference without its first and last `frames` frames (where the fades are).
audio::Sound Inner(const audio::Sound& sound, size_t frames) {
  audio::Sound inner = sound;
  const size_t total = sound.samples.size() / sound.channels;
  inner.samples.assign(sound.samples.begin() + static_cast<ptrdiff_t>(frames * sound.channels),
                       sound.samples.begin() + static_cast<ptrdiff_t>((total - frames) * sound.channels));
  return inner;
}

// 500 to 1200 ms of a 2-second sweep, played into the host: it correlates
// with sox's cut of the same span above 0.999 (fades aside), lasts as long to
// a period, and fades in and out rather than starting and stopping at full level.
TEST(Trim, ThePartPlayedIsSoxsCutWithFadesAtTheCuts) {
  const audio::Sound ref = LoadSound(Sounds() + L"trim-ref.wav");
  ASSERT_EQ(2u, ref.channels);
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 3", Sounds() + L"trim-source.wav", L"trim", L"--start 500 --end 1200");
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  const audio::Sound played = WithoutGaps(run.output, "trim");
  const size_t first = FirstSound(played, 1e-4f), last = LastSound(played, 1e-4f);
  const size_t refFrames = ref.samples.size() / ref.channels;
  std::printf("[ trim     ] %zu frames played, sox's cut %zu\n", last - first, refFrames);
  EXPECT_NEAR(static_cast<double>(refFrames), static_cast<double>(last - first), kPeriodFrames);
  // Where the inner part lies best, frame by frame around where it should.
  const audio::Sound inner = Inner(ref, kFade);
  size_t best = first + kFade;
  double bestValue = -2;
  for (size_t lag = first + kFade > 48 ? first + kFade - 48 : 0; lag <= first + kFade + 48; ++lag) {
    const double value = Correlation(played, inner, lag, 0);
    if (value > bestValue) bestValue = value, best = lag;
  }
  for (uint32_t c = 0; c < 2; ++c) {
    const double value = Correlation(played, inner, best, c);
    std::printf("[ xcorr    ] trim channel %u: %.5f at frame %zu\n", c, value, best);
    EXPECT_GT(value, 0.999) << "channel " << c;
  }
  // The fades: the first and last frames are far below the sweep's level there.
  const size_t start = best - kFade;
  const float level = 0.4f;
  EXPECT_LT(std::fabs(played.samples[start * 2]), level * 0.05f) << "no fade in";
  const size_t end = start + refFrames - 1;
  EXPECT_LT(std::fabs(played.samples[end * 2]), level * 0.05f) << "no fade out";
}

}  // namespace
}  // namespace quillon::test
