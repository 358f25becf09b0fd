// Every format `quillon play` reads, at rates from 8 to 192 kHz and with 1, 2
// or 6 channels, played through the real Quillon.dll in quillon-host into a
// 48 kHz stream of 1, 2 or 6 channels. The output must carry the sound:
// each channel is compared with sox's own conversion of the same file by
// normalised cross-correlation at the best common lag.
//
// A player starved of time leaves silences that end where a period begins
// (WithoutGaps): they are taken out and counted before the comparison, as the
// end-to-end tests count them. All of the sound must arrive: an MP3 without a
// length tag plays to its end.
#include "support/QuillonRun.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace quillon::test {
namespace {

constexpr const wchar_t* kMic = L"{0.0.1.00000000}.{f0a70000-0000-4000-8000-000000000001}";

struct Row {
  const char* name;     // made by make-sounds.sh; the stream's channel count ends it
  const char* ext;
  uint32_t streamChannels;
};

class FormatTable : public ::testing::TestWithParam<Row> {};

TEST_P(FormatTable, PlayedSoundMatchesSoxConversion) {
  const Row& row = GetParam();
  const std::wstring name(row.name, row.name + std::strlen(row.name));
  const std::wstring file = Sounds() + name + L"." + std::wstring(row.ext, row.ext + std::strlen(row.ext));
  const audio::Sound ref = LoadSound(Sounds() + name + L"-ref.wav");
  ASSERT_EQ(row.streamChannels, ref.channels);
  const double seconds = static_cast<double>(ref.samples.size()) / ref.channels / 48000;
  const ToolRun run = HostAndPlayer(kMic, L"--channels " + std::to_wstring(row.streamChannels) + L" --seconds " +
                                              std::to_wstring(seconds + 2.0), file, name);
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ASSERT_EQ(row.streamChannels, run.output.channels);
  const audio::Sound played = WithoutGaps(run.output, row.name);
  // The lag: where the first channel correlates best, searched around the
  // first sound in the output (the resamplers' delays differ by a few frames).
  const size_t first = FirstSound(played), refFirst = FirstSound(ref, 1e-6f);
  const size_t centre = first > refFirst ? first - refFirst : 0;
  // Coarse over half a second of sound, then frame by frame around the best.
  auto search = [&](size_t from, size_t to, size_t step, size_t limit) {
    size_t best = from;
    double bestValue = -2;
    for (size_t lag = from; lag <= to; lag += step) {
      const double value = Correlation(played, ref, lag, 0, limit);
      if (value > bestValue) bestValue = value, best = lag;
    }
    return best;
  };
  const size_t coarse = search(centre > 2400 ? centre - 2400 : 0, centre + 2400, 4, refFirst + 24000);
  const size_t best = search(coarse > 4 ? coarse - 4 : 0, coarse + 4, 1, SIZE_MAX);
  // All of it played: the sound lasts as long as the reference's, to a period.
  const size_t span = LastSound(played, 1e-3f) - FirstSound(played, 1e-3f);
  const size_t refSpan = LastSound(ref, 1e-3f) - FirstSound(ref, 1e-3f);
  EXPECT_NEAR(static_cast<double>(refSpan), static_cast<double>(span), kPeriodFrames) << row.name;
  for (uint32_t c = 0; c < row.streamChannels; ++c) {
    const double value = Correlation(played, ref, best, c);
    std::printf("[ xcorr    ] %-22s channel %u: %.5f at frame %zu\n", row.name, c, value, best);
    EXPECT_GT(value, 0.999) << row.name << " channel " << c;
  }
}

INSTANTIATE_TEST_SUITE_P(Play, FormatTable, ::testing::Values(
    Row{"u8-mono-8k-to2", "wav", 2}, Row{"s16-stereo-44k-to2", "wav", 2}, Row{"s24-six-96k-to2", "wav", 2},
    Row{"s32-mono-22k-to1", "wav", 1}, Row{"f32-stereo-192k-to1", "wav", 1}, Row{"f64-mono-16k-to6", "wav", 6},
    Row{"f32-six-48k-to6", "wav", 6}, Row{"s16-six-44k-to1", "wav", 1}, Row{"flac-stereo-44k-to2", "flac", 2},
    Row{"vorbis-mono-32k-to2", "ogg", 2}, Row{"opus-stereo-48k-to2", "opus", 2}, Row{"mp3-mono-44k-to2", "mp3", 2},
    Row{"mp3untagged-stereo-44k-to2", "mp3", 2}),
    [](const auto& info) { return TestName(info.param.name); });

}  // namespace
}  // namespace quillon::test
