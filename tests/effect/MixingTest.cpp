// The real-time mixing rules, driven through the effect's own interfaces.
#include "support/EffectHarness.h"

#include <functional>

namespace quillon::test {
namespace {

constexpr UINT32 kChannels = 2;
constexpr UINT32 kFrames = 4;
constexpr size_t kPeriod = kChannels * kFrames;     // samples per period
constexpr size_t kChunk = 8 * kPeriod;              // samples per chunk

std::vector<float> Mic(size_t n, float base = 0.25f) {
  std::vector<float> mic(n);
  for (size_t i = 0; i < n; ++i) mic[i] = base + 0.001f * static_cast<float>(i);
  return mic;
}

// Received sound sample k: distinct and easy to recognise.
float Sound(size_t k) { return 0.01f * static_cast<float>(k + 1); }

std::vector<float> SoundBlock(size_t count, size_t first = 0) {
  std::vector<float> block(count);
  for (size_t i = 0; i < count; ++i) block[i] = Sound(first + i);
  return block;
}

// ---- One mixing period, rule by rule ------------------------------------------
struct RuleCase {
  const char* name;
  UINT32 inputFlag;
  bool registered;
  bool queued;
  bool blockVoice;
  float gain;
  // Expected output sample from mic sample m and received sample s.
  std::function<float(float m, float s)> expected;
  UINT32 expectedFlag;
};

class MixingRule : public ::testing::TestWithParam<RuleCase> {};

TEST_P(MixingRule, OutputSampleByRule) {
  const RuleCase& c = GetParam();
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(kChannels, kFrames));
  ASSERT_NE(-1, h.Slot());
  QuillonTestAccess::StopConfigListener(h.Effect());
  if (!c.registered) QuillonTestAccess::SetInstanceIndex(h.Effect(), -1);
  QuillonTestAccess::SetBlockVoice(h.Effect(), c.blockVoice);
  QuillonTestAccess::SetMicGain(h.Effect(), c.gain);

  const std::vector<float> mic = Mic(kPeriod);
  h.Process(mic);  // the first period sizes the chunk; only then is sound accepted
  if (c.queued) ASSERT_TRUE(h.Accept(SoundBlock(kChunk)));

  std::vector<float> out = h.Process(mic, c.inputFlag);
  const bool silent = c.inputFlag == BUFFER_SILENT;
  for (size_t i = 0; i < kPeriod; ++i) {
    float m = silent ? 0.0f : mic[i];
    float s = c.queued ? Sound(i) : 0.0f;
    EXPECT_FLOAT_EQ(c.expected(m, s), out[i]) << "sample " << i;
  }
  EXPECT_EQ(c.expectedFlag, h.OutputProperty().u32BufferFlags);
  EXPECT_EQ(kFrames, h.OutputProperty().u32ValidFrameCount);
}

const RuleCase kRuleCases[] = {
    {"UnregisteredPassesThroughWithoutGain", BUFFER_VALID, false, false, false, 2.0f,
     [](float m, float) { return m; }, BUFFER_VALID},
    {"NothingQueuedUnityGain", BUFFER_VALID, true, false, false, 1.0f, [](float m, float) { return m; },
     BUFFER_VALID},
    {"NothingQueuedGainTwo", BUFFER_VALID, true, false, false, 2.0f, [](float m, float) { return 2 * m; },
     BUFFER_VALID},
    {"QueuedUnityGainAdds", BUFFER_VALID, true, true, false, 1.0f, [](float m, float s) { return s + m; },
     BUFFER_VALID},
    {"QueuedGainTwoScalesMicOnly", BUFFER_VALID, true, true, false, 2.0f,
     [](float m, float s) { return s + 2 * m; }, BUFFER_VALID},
    {"BlockVoiceReplacesMic", BUFFER_VALID, true, true, true, 2.0f, [](float, float s) { return s; },
     BUFFER_VALID},
    {"BlockVoiceWithNothingQueuedLetsMicPass", BUFFER_VALID, true, false, true, 2.0f,
     [](float m, float) { return 2 * m; }, BUFFER_VALID},
    {"SilentInputNothingQueuedStaysSilent", BUFFER_SILENT, true, false, false, 2.0f,
     [](float, float) { return 0.0f; }, BUFFER_SILENT},
    {"SilentInputWithSoundBecomesValid", BUFFER_SILENT, true, true, false, 2.0f,
     [](float, float s) { return s; }, BUFFER_VALID},
};

INSTANTIATE_TEST_SUITE_P(Rules, MixingRule, ::testing::ValuesIn(kRuleCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Mixing, InvalidInputLeavesOutputRecordUntouched) {
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(kChannels, kFrames));
  for (UINT32 flag : {static_cast<UINT32>(BUFFER_INVALID), 3u, 0xFFFFFFFFu}) {
    std::vector<float> out = h.Process(Mic(kPeriod), flag);
    EXPECT_EQ(std::vector<float>(kPeriod, 99.0f), out) << "flag " << flag;
    EXPECT_EQ(static_cast<UINT32>(BUFFER_INVALID), h.OutputProperty().u32BufferFlags);
    EXPECT_EQ(0u, h.OutputProperty().u32ValidFrameCount);
  }
}

// ---- The chunk cycle over many periods --------------------------------------------
struct ChunkCase {
  const char* name;
  bool blockVoice;
};

class ChunkCycle : public ::testing::TestWithParam<ChunkCase> {};

// One block of a chunk and a quarter: eight periods of a full chunk, then the
// quarter followed by silence for the rest of the second chunk, then the mic alone.
TEST_P(ChunkCycle, FullChunkThenShortChunkThenNothing) {
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(kChannels, kFrames));
  QuillonTestAccess::StopConfigListener(h.Effect());
  QuillonTestAccess::SetBlockVoice(h.Effect(), GetParam().blockVoice);
  const std::vector<float> mic = Mic(kPeriod);

  h.Process(mic);
  const size_t total = kChunk + kChunk / 4;
  ASSERT_TRUE(h.Accept(SoundBlock(total)));

  size_t next = 0;  // index of the next received sample expected in the output
  for (int period = 1; period <= 17; ++period) {
    const size_t queuedBefore = h.Queued();
    std::vector<float> out = h.Process(mic);
    const size_t taken = period == 1 ? kChunk : period == 9 ? kChunk / 4 : 0;
    EXPECT_EQ(queuedBefore - taken, h.Queued()) << "period " << period;
    const bool chunkPlaying = period <= 16;
    for (size_t i = 0; i < kPeriod; ++i) {
      float s = 0.0f;
      if (chunkPlaying && next < total) s = Sound(next);
      float expected = chunkPlaying ? (GetParam().blockVoice ? s : s + mic[i]) : mic[i];
      ASSERT_FLOAT_EQ(expected, out[i]) << "period " << period << " sample " << i;
      if (chunkPlaying) ++next;
    }
  }
  EXPECT_EQ(0u, QuillonTestAccess::Queued(h.Effect()));
}

INSTANTIATE_TEST_SUITE_P(Mixing, ChunkCycle,
                         ::testing::Values(ChunkCase{"Mix", false}, ChunkCase{"BlockVoice", true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Mixing, QueueAcceptsBlocksOnlyBelowOneChunk) {
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(kChannels, kFrames));
  // Before the first period the chunk size is unknown: nothing is accepted.
  EXPECT_FALSE(h.Accept(SoundBlock(10)));
  h.Process(Mic(kPeriod));
  EXPECT_TRUE(h.Accept(SoundBlock(kChunk - 1)));
  EXPECT_TRUE(h.Accept(SoundBlock(TransferBlock::kMaxSamples)));  // queue was below one chunk
  EXPECT_FALSE(h.Accept(SoundBlock(1)));                          // now above it
  EXPECT_EQ(kChunk - 1 + TransferBlock::kMaxSamples, QuillonTestAccess::Queued(h.Effect()));
}

// Real engines vary the frame count within one lock period. Whatever arrives,
// nothing outside the connection buffers or the chunk is touched, and the
// received sound still comes out in order, sample for sample.
TEST(Mixing, VaryingFrameCountStaysInBoundsAndKeepsSoundInOrder) {
  constexpr UINT32 kMaxFrames = 600;
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(kChannels, kMaxFrames));
  const std::vector<float> silence(kChannels * kMaxFrames, 0.0f);
  h.Process(silence, BUFFER_VALID, 480);  // chunk sized for 480 frames
  const size_t total = 3 * 8 * 480 * kChannels;
  size_t queued = 0;
  std::vector<float> received;
  const UINT32 frameCounts[] = {485, 480, 528, 600, 1000, 7, 528, 485};
  for (int round = 0; round < 12; ++round) {
    for (UINT32 frames : frameCounts) {
      while (queued < total && h.Accept(SoundBlock(std::min<size_t>(4000, total - queued), queued))) {
        queued += std::min<size_t>(4000, total - queued);
      }
      std::vector<float> out = h.Process(silence, BUFFER_VALID, frames);
      EXPECT_EQ(std::min(frames, kMaxFrames) * kChannels, out.size());
      received.insert(received.end(), out.begin(), out.end());
    }
  }
  // Strip the silence between chunks; what is left must be the sound in order.
  std::vector<float> sound;
  for (float v : received) {
    if (v != 0.0f) sound.push_back(v);
  }
  ASSERT_EQ(total, sound.size());
  for (size_t k = 0; k < total; ++k) ASSERT_FLOAT_EQ(Sound(k), sound[k]) << "sample " << k;
}

// A chunk holds eight first periods; when later periods do not divide it, a
// chunk ends inside a period and the next one must follow in the same period.
struct FrameSequence {
  const char* name;
  UINT32 first;               // frames of the period that sizes the chunk
  std::vector<UINT32> later;  // frames of the periods after it, in turn
};

class ChunkEndsInsideAPeriod : public ::testing::TestWithParam<FrameSequence> {};

TEST_P(ChunkEndsInsideAPeriod, APeriodMixesWhileSoundIsQueued) {
  constexpr UINT32 kMaxFrames = 480;
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(kChannels, kMaxFrames));
  QuillonTestAccess::StopConfigListener(h.Effect());
  const std::vector<float> silence(kChannels * kMaxFrames, 0.0f);
  h.Process(silence, BUFFER_VALID, GetParam().first);
  const size_t total = 40 * kMaxFrames * kChannels;
  size_t queued = 0;
  std::vector<float> sound;
  for (size_t period = 0; period < 200 && sound.size() < total; ++period) {
    while (queued < total && h.Accept(SoundBlock(std::min<size_t>(1000, total - queued), queued))) {
      queued += std::min<size_t>(1000, total - queued);
    }
    const std::vector<float> out =
        h.Process(silence, BUFFER_VALID, GetParam().later[period % GetParam().later.size()]);
    // Sound from the period's start; silence after it only once nothing is queued.
    size_t played = 0;
    while (played < out.size() && out[played] != 0.0f) ++played;
    for (size_t i = played; i < out.size(); ++i) ASSERT_EQ(0.0f, out[i]) << "period " << period;
    if (played < out.size() && played > 0) ASSERT_EQ(0u, h.Queued()) << "period " << period << " stopped early";
    sound.insert(sound.end(), out.begin(), out.begin() + static_cast<ptrdiff_t>(played));
  }
  ASSERT_EQ(total, sound.size());
  for (size_t k = 0; k < total; ++k) ASSERT_FLOAT_EQ(Sound(k), sound[k]) << "sample " << k;
}

INSTANTIATE_TEST_SUITE_P(Mixing, ChunkEndsInsideAPeriod,
                         ::testing::Values(FrameSequence{"OneFrameFirst", 1, {480}},
                                           FrameSequence{"Alternating441And440", 441, {440, 441}},
                                           FrameSequence{"ShorterThenLonger", 100, {7, 480, 333}}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillon::test
