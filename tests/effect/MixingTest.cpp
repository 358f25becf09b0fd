// The real-time mixing: the loops on their own, the chunk cycle driven the
// way the real-time routine drives it, and the buffer flags through the effect.
#include "effect/ChunkMixer.h"
#include "effect/Mixing.h"
#include "platform/UniqueResource.h"
#include "support/EffectHarness.h"

#include <cstring>

namespace quillon::test {
namespace {

constexpr size_t kPeriod = 8;                             // samples per period (4 stereo frames)
constexpr size_t kChunk = ChunkMixer::kPeriodsPerChunk * kPeriod;

std::vector<float> Mic(size_t n) {
  std::vector<float> mic(n);
  for (size_t i = 0; i < n; ++i) mic[i] = 0.25f + 0.001f * static_cast<float>(i);
  return mic;
}

// Received sound sample k: distinct and never zero.
float Sound(size_t k) { return 0.01f * static_cast<float>(k + 1); }

std::vector<float> SoundBlock(size_t count, size_t first = 0) {
  std::vector<float> block(count);
  for (size_t i = 0; i < count; ++i) block[i] = Sound(first + i);
  return block;
}

bool SameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(MixingLoops, ExactExpressionsInPlaceOrNotAndNothingBeyondN) {
  const std::vector<float> mic = {0.5f, -0.25f, 1e-30f, -0.0f, 3.0f, 0.1f, -7.5f};
  const std::vector<float> sound = {0.125f, 0.3f, -1e-30f, 0.0f, -3.0f, 0.7f, 2.25f};
  const size_t n = mic.size() - 1;  // the last sample must stay untouched
  for (float gain : {1.0f, 2.0f, 0.7f}) {
    for (bool inPlace : {false, true}) {
      std::vector<float> out = inPlace ? mic : std::vector<float>(mic.size(), 99.0f);
      MixSound(out.data(), inPlace ? out.data() : mic.data(), sound.data(), n, gain);
      for (size_t i = 0; i < n; ++i) {
        const float want = gain == 1.0f ? sound[i] + mic[i] : sound[i] + gain * mic[i];
        EXPECT_TRUE(SameBits(want, out[i])) << "mix gain " << gain << " sample " << i;
      }
      EXPECT_EQ(inPlace ? mic[n] : 99.0f, out[n]);

      out = inPlace ? mic : std::vector<float>(mic.size(), 99.0f);
      ApplyGain(out.data(), inPlace ? out.data() : mic.data(), n, gain);
      for (size_t i = 0; i < n; ++i) EXPECT_TRUE(SameBits(gain * mic[i], out[i])) << "gain " << gain << " " << i;
      EXPECT_EQ(inPlace ? mic[n] : 99.0f, out[n]);
    }
  }
}

// A mixer prepared as a lock prepares it, for periods of up to `maxPeriod` samples.
class MixerRig {
 public:
  explicit MixerRig(size_t maxPeriod = kPeriod) { mixer.Prepare(sound, taken.Get(), maxPeriod); }
  ~MixerRig() { mixer.Free(); }

  // One period as the real-time routine runs it; the output is guarded by one extra sample.
  std::vector<float> Period(const std::vector<float>& mic, float gain = 1.0f, bool replace = false) {
    std::vector<float> out(mic.size() + 1, -99.0f);
    mixed = 0;
    if (mixer.SizeChunk(mic.size())) {
      mixed = mixer.Mix(out.data(), mic.data(), mic.size(), gain, replace);
    } else {
      std::copy(mic.begin(), mic.end(), out.begin());
    }
    EXPECT_EQ(-99.0f, out.back()) << "wrote past the period";
    out.pop_back();
    return out;
  }
  bool ChunkTakenSignalled() { return WaitForSingleObject(taken.Get(), 0) == WAIT_OBJECT_0; }

  ReceivedSound sound;
  UniqueHandle taken{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  ChunkMixer mixer;
  size_t mixed = 0;
};

// One block of a chunk and a quarter: a full chunk over eight periods, then the
// quarter followed by silence for the rest of the second chunk, then the mic
// alone. Each chunk taken wakes the receiver once. The gain scales the mic
// only; with block voice the chunk replaces it.
TEST(ChunkCycle, FullChunkThenShortChunkThenNothing) {
  for (bool replace : {false, true}) {
    for (float gain : {1.0f, 2.0f}) {
      SCOPED_TRACE(testing::Message() << "block voice " << replace << ", gain " << gain);
      MixerRig rig;
      const std::vector<float> mic = Mic(kPeriod);
      EXPECT_EQ(mic, rig.Period(mic));  // the first period sizes the chunk; only then is sound accepted
      const size_t total = kChunk + kChunk / 4;
      ASSERT_TRUE(rig.sound.Accept(SoundBlock(total).data(), total));
      size_t next = 0;  // the next received sample expected in the output
      for (int period = 1; period <= 17; ++period) {
        const size_t queuedBefore = rig.sound.queue.Size();
        const std::vector<float> out = rig.Period(mic, gain, replace);
        const size_t taken = period == 1 ? kChunk : period == 9 ? kChunk / 4 : 0;
        EXPECT_EQ(queuedBefore - taken, rig.sound.queue.Size()) << "period " << period;
        EXPECT_EQ(taken > 0, rig.ChunkTakenSignalled()) << "period " << period;
        const bool chunkPlaying = period <= 16;
        EXPECT_EQ(chunkPlaying ? kPeriod : 0u, rig.mixed) << "period " << period;
        for (size_t i = 0; i < kPeriod; ++i) {
          const float s = chunkPlaying && next < total ? Sound(next) : 0.0f;
          const float expected = !chunkPlaying ? gain * mic[i] : replace ? s : s + gain * mic[i];
          ASSERT_FLOAT_EQ(expected, out[i]) << "period " << period << " sample " << i;
          if (chunkPlaying) ++next;
        }
      }
    }
  }
}

TEST(ChunkCycle, QueueAcceptsBlocksOnlyBelowOneChunk) {
  MixerRig rig;
  // Before the first period the chunk size is unknown: nothing is accepted.
  EXPECT_FALSE(rig.sound.Accept(SoundBlock(10).data(), 10));
  rig.Period(Mic(kPeriod));
  const std::vector<float> big = SoundBlock(TransferBlock::kMaxSamples + 5);
  EXPECT_TRUE(rig.sound.Accept(big.data(), kChunk - 1));
  EXPECT_TRUE(rig.sound.Accept(big.data(), big.size()));  // below one chunk: taken, cut to one block
  EXPECT_FALSE(rig.sound.Accept(big.data(), 1));          // now above it
  EXPECT_EQ(kChunk - 1 + TransferBlock::kMaxSamples, rig.sound.queue.Size());
}

TEST(ChunkCycle, DropQueuedSilencesTheRestOfTheChunk) {
  MixerRig rig;
  const std::vector<float> mic = Mic(kPeriod);
  rig.Period(mic);
  ASSERT_TRUE(rig.sound.Accept(SoundBlock(3 * kChunk).data(), 3 * kChunk));
  rig.Period(mic);
  rig.mixer.DropQueued();
  EXPECT_EQ(0u, rig.sound.queue.Size());
  EXPECT_EQ(mic, rig.Period(mic));
  EXPECT_EQ(0u, rig.mixed);
}

// Real engines vary the frame count within one lock period. Whatever arrives,
// nothing beyond the period is written, and received sound comes out in
// order; when a chunk ends inside a period while sound is queued, the next
// chunk follows in the same period, so there is no gap.
struct FrameSequence {
  const char* name;
  size_t first;               // samples of the period that sizes the chunk
  std::vector<size_t> later;  // samples of the periods after it, in turn
};

class VaryingPeriods : public ::testing::TestWithParam<FrameSequence> {};

TEST_P(VaryingPeriods, SoundInOrderWithoutGapsWhileQueued) {
  constexpr size_t kMax = 960;
  MixerRig rig(kMax);
  rig.Period(std::vector<float>(GetParam().first, 0.0f));
  const size_t total = 40 * kMax;
  size_t queued = 0;
  std::vector<float> sound;
  for (size_t period = 0; period < 400 && sound.size() < total; ++period) {
    while (queued < total && rig.sound.Accept(SoundBlock(std::min<size_t>(1000, total - queued), queued).data(),
                                              std::min<size_t>(1000, total - queued))) {
      queued += std::min<size_t>(1000, total - queued);
    }
    const std::vector<float> out = rig.Period(std::vector<float>(GetParam().later[period % GetParam().later.size()]));
    const size_t played = static_cast<size_t>(std::find(out.begin(), out.end(), 0.0f) - out.begin());
    for (size_t i = played; i < out.size(); ++i) ASSERT_EQ(0.0f, out[i]) << "period " << period;
    // Silence after sound only once nothing is queued.
    if (played < out.size() && played > 0) ASSERT_EQ(0u, rig.sound.queue.Size()) << "gap in period " << period;
    sound.insert(sound.end(), out.begin(), out.begin() + static_cast<ptrdiff_t>(played));
  }
  ASSERT_EQ(total, sound.size());
  for (size_t k = 0; k < total; ++k) ASSERT_FLOAT_EQ(Sound(k), sound[k]) << "sample " << k;
}

INSTANTIATE_TEST_SUITE_P(ChunkCycle, VaryingPeriods,
                         ::testing::Values(FrameSequence{"OneFrameFirst", 2, {960}},
                                           FrameSequence{"Alternating441And440", 882, {880, 882}},
                                           FrameSequence{"ShorterThenLonger", 200, {14, 960, 666}},
                                           FrameSequence{"EngineLikeMix", 960, {960, 14, 958, 960, 2}}), CaseName);

// ---- Through the effect: flags and bounds of the connection buffers ------------------
TEST(EffectProcess, FlagsDecideWhatIsWritten) {
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(2, 4));
  const std::vector<float> mic = Mic(kPeriod);
  EXPECT_EQ(mic, h.Process(mic));
  EXPECT_EQ(static_cast<UINT32>(BUFFER_VALID), h.OutputProperty().u32BufferFlags);
  for (UINT32 flag : {static_cast<UINT32>(BUFFER_INVALID), 3u, 0xFFFFFFFFu}) {
    EXPECT_EQ(std::vector<float>(kPeriod, 99.0f), h.Process(mic, flag)) << "flag " << flag;
    EXPECT_EQ(static_cast<UINT32>(BUFFER_INVALID), h.OutputProperty().u32BufferFlags);
    EXPECT_EQ(0u, h.OutputProperty().u32ValidFrameCount);
  }
  // A frame count beyond the locked buffers is cut to them (the harness checks the guards).
  EXPECT_EQ(mic, h.Process(mic, BUFFER_VALID, 1000));
  EXPECT_EQ(1000u, h.OutputProperty().u32ValidFrameCount);
}

}  // namespace
}  // namespace quillon::test
