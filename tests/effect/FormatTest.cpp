// Format negotiation and the lock checks, with their exact codes.
#include "diag/Logger.h"
#include "support/EffectHarness.h"


namespace quillon::test {
namespace {

UNCOMPRESSEDAUDIOFORMAT Pcm16(UINT32 channels, float rate) {
  return MakeUncompressedFormat(KSDATAFORMAT_SUBTYPE_PCM_GUID, channels, 2, 16, rate);
}

ComPtr<IAudioMediaType> Media(const UNCOMPRESSEDAUDIOFORMAT& format) {
  ComPtr<IAudioMediaType> type;
  EXPECT_EQ(S_OK, CreateAudioMediaType(format, type.Put()));
  return type;
}

struct FormatCase {
  const char* name;
  bool hasOpposite;
  UNCOMPRESSEDAUDIOFORMAT opposite;
  UNCOMPRESSEDAUDIOFORMAT requested;
  HRESULT expected;
  // For S_FALSE: the suggestion.
  UINT32 channels;
  float rate;
};

class InputFormat : public ::testing::TestWithParam<FormatCase> {};

TEST_P(InputFormat, AnswerAndSuggestion) {
  const FormatCase& c = GetParam();
  EffectHarness h;
  ComPtr<IAudioMediaType> opposite = c.hasOpposite ? Media(c.opposite) : ComPtr<IAudioMediaType>();
  ComPtr<IAudioMediaType> requested = Media(c.requested);
  ComPtr<IAudioMediaType> supported;
  EXPECT_EQ(c.expected, h.Apo()->IsInputFormatSupported(opposite.Get(), requested.Get(), supported.Put()));
  if (c.expected == S_OK) {
    EXPECT_EQ(requested.Get(), supported.Get());
  } else if (c.expected == S_FALSE) {
    ASSERT_TRUE(supported);
    UNCOMPRESSEDAUDIOFORMAT s{};
    ASSERT_EQ(S_OK, supported->GetUncompressedAudioFormat(&s));
    EXPECT_TRUE(IsEqualGUID(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT_GUID, s.guidFormatType));
    EXPECT_EQ(4u, s.dwBytesPerSampleContainer);
    EXPECT_EQ(32u, s.dwValidBitsPerSample);
    EXPECT_EQ(c.channels, s.dwSamplesPerFrame);
    EXPECT_EQ(c.rate, s.fFramesPerSecond);
  } else {
    EXPECT_FALSE(supported);
  }
}

const FormatCase kFormatCases[] = {
    {"Float32Accepted", false, {}, MakeFloatFormat(2, 48000), S_OK, 0, 0},
    {"Float32MatchingOppositeAccepted", true, MakeFloatFormat(2, 48000), MakeFloatFormat(2, 48000), S_OK, 0, 0},
    {"Pcm16SuggestsFloat32", false, {}, Pcm16(2, 44100), S_FALSE, 2, 44100},
    {"RateAboveLimit", false, {}, MakeFloatFormat(2, 500000), S_FALSE, 2, 384000},
    {"RateBelowLimit", false, {}, MakeFloatFormat(2, 5), S_FALSE, 2, 10},
    {"NoChannels", false, {}, MakeFloatFormat(0, 48000), S_FALSE, 1, 48000},
    {"TooManyChannels", false, {}, MakeFloatFormat(5000, 48000), S_FALSE, 4096, 48000},
    {"ChannelsMustMatchOpposite", true, MakeFloatFormat(1, 48000), MakeFloatFormat(2, 48000), S_FALSE, 1, 48000},
    {"RateMustMatchOpposite", true, MakeFloatFormat(2, 44100), MakeFloatFormat(2, 48000), S_FALSE, 2, 44100},
    {"OppositeNotFloat", true, Pcm16(2, 48000), MakeFloatFormat(2, 48000), APOERR_FORMAT_NOT_SUPPORTED, 0, 0},
};

INSTANTIATE_TEST_SUITE_P(Negotiation, InputFormat, ::testing::ValuesIn(kFormatCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(InputFormatPointers, NullArgumentsArePointerErrors) {
  EffectHarness h;
  ComPtr<IAudioMediaType> requested = Media(MakeFloatFormat(2, 48000));
  ComPtr<IAudioMediaType> supported;
  EXPECT_EQ(E_POINTER, h.Apo()->IsInputFormatSupported(nullptr, nullptr, supported.Put()));
  EXPECT_EQ(E_POINTER, h.Apo()->IsInputFormatSupported(nullptr, requested.Get(), nullptr));
}

// ---- LockForProcess checks ----------------------------------------------------------
struct LockCase {
  const char* name;
  UINT32 inputs, outputs;
  bool nullArray;
  UNCOMPRESSEDAUDIOFORMAT inFormat, outFormat;
  UINT32 inMaxFrames, outMaxFrames;
  UINT32 signature;
  bool overlap;
  HRESULT expected;
};

class LockChecks : public ::testing::TestWithParam<LockCase> {};

TEST_P(LockChecks, Code) {
  const LockCase& c = GetParam();
  EffectHarness h;
  std::vector<float> buffer(4 * 4096);
  ComPtr<IAudioMediaType> inType = Media(c.inFormat), outType = Media(c.outFormat);
  APO_CONNECTION_DESCRIPTOR in{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(buffer.data()),
                               c.inMaxFrames, inType.Get(), c.signature};
  float* outStart = c.overlap ? buffer.data() + 4 : buffer.data() + 2 * 4096;
  APO_CONNECTION_DESCRIPTOR out{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(outStart),
                                c.outMaxFrames, outType.Get(), APO_CONNECTION_DESCRIPTOR_SIGNATURE};
  APO_CONNECTION_DESCRIPTOR* ins[] = {&in, &in};
  APO_CONNECTION_DESCRIPTOR* outs[] = {&out, &out};
  EXPECT_EQ(c.expected, h.Config()->LockForProcess(c.inputs, c.nullArray ? nullptr : ins, c.outputs, outs));
  if (SUCCEEDED(c.expected)) EXPECT_EQ(S_OK, h.Config()->UnlockForProcess());
}

const auto kF2 = MakeFloatFormat(2, 48000);
const LockCase kLockCases[] = {
    {"Valid", 1, 1, false, kF2, kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, false, S_OK},
    {"NullArray", 1, 1, true, kF2, kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, false, E_POINTER},
    {"NoInput", 0, 1, false, kF2, kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, false,
     APOERR_NUM_CONNECTIONS_INVALID},
    {"TwoOutputs", 1, 2, false, kF2, kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, false,
     APOERR_NUM_CONNECTIONS_INVALID},
    {"IntegerInput", 1, 1, false, Pcm16(2, 48000), kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, false,
     APOERR_FORMAT_NOT_SUPPORTED},
    {"ChannelMismatch", 1, 1, false, MakeFloatFormat(1, 48000), kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE,
     false, APOERR_FORMAT_NOT_SUPPORTED},
    {"BadSignature", 1, 1, false, kF2, kF2, 480, 480, 0x12345678, false, E_INVALIDARG},
    {"InputLargerThanOutput", 1, 1, false, kF2, kF2, 960, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, false,
     APOERR_INVALID_OUTPUT_MAXFRAMECOUNT},
    {"OverlappingBuffers", 1, 1, false, kF2, kF2, 480, 480, APO_CONNECTION_DESCRIPTOR_SIGNATURE, true,
     APOERR_BUFFERS_OVERLAP},
};

INSTANTIATE_TEST_SUITE_P(Lock, LockChecks, ::testing::ValuesIn(kLockCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The audio engine may ask again and again; a refusal logged below the level
// must not cost memory (its error text is never made).
TEST(InputFormatQueries, RefusalsBelowTheLogLevelLeaveMemoryAlone) {
  ASSERT_EQ(LOG_ERROR, Logger::Instance().Level());
  EffectHarness h;
  ComPtr<IAudioMediaType> requested = Media(Pcm16(2, 44100));
  // Bytes in use on the process heap, where FormatMessage's buffers go. (Wine
  // does not count private bytes, so they cannot show a leak here.)
  auto heapBytes = [] {
    SIZE_T busy = 0;
    PROCESS_HEAP_ENTRY entry{};
    HeapLock(GetProcessHeap());
    while (HeapWalk(GetProcessHeap(), &entry)) {
      if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) busy += entry.cbData;
    }
    HeapUnlock(GetProcessHeap());
    return busy;
  };
  const SIZE_T before = heapBytes();
  for (int i = 0; i < 200000; ++i) {
    ComPtr<IAudioMediaType> supported;
    ASSERT_EQ(S_FALSE, h.Apo()->IsInputFormatSupported(nullptr, requested.Get(), supported.Put()));
  }
  const SIZE_T after = heapBytes();
  const SIZE_T grown = after > before ? after - before : 0;
  std::printf("[ memory   ] 200000 refused queries grew the process heap by %zu bytes\n", static_cast<size_t>(grown));
  EXPECT_LT(grown, 1u << 20);
}

TEST(Locking, LockTwiceAndUnlockTwice) {
  EffectHarness h;
  ASSERT_EQ(S_OK, h.Lock(2, 480));
  EXPECT_EQ(APOERR_APO_LOCKED, h.Lock(2, 480));
  UINT32 channels = 0;
  EXPECT_EQ(S_OK, h.Apo()->GetInputChannelCount(&channels));
  EXPECT_EQ(2u, channels);
  EXPECT_EQ(S_OK, h.Unlock());
  EXPECT_EQ(APOERR_ALREADY_UNLOCKED, h.Unlock());
}

}  // namespace
}  // namespace quillon::test
