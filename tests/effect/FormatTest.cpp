// Initialize with each record the audio engine may pass, format negotiation
// and the lock checks, with their exact codes.
#include "diag/Logger.h"
#include "support/EffectHarness.h"

namespace quillon::test {
namespace {

struct InitCase {
  const char* name;
  UINT32 size;
  bool withData, withStore;
  UINT32 recordSize;  // cbSize written into the record (the base object checks it)
  HRESULT expected;
};

class InitializeSizes : public ::testing::TestWithParam<InitCase> {};

TEST_P(InitializeSizes, Result) {
  const InitCase& c = GetParam();
  EffectHarness h;
  tools::EndpointProperties store(EffectHarness::kDefaultEndpoint);
  alignas(8) BYTE record[128] = {};
  auto* init = reinterpret_cast<APOInitSystemEffects2*>(record);
  init->APOInit.cbSize = c.recordSize;
  init->APOInit.clsid = QuillonRegistrationProperties().clsid;
  init->pAPOEndpointProperties = c.withStore ? &store : nullptr;
  EXPECT_EQ(c.expected, h.Apo()->Initialize(c.size, c.withData ? record : nullptr));
  EXPECT_EQ(c.expected == S_OK ? EffectHarness::kDefaultEndpoint : L"", h.Effect()->EndpointId());
}

const InitCase kInitCases[] = {
    {"NoData", 0, false, true, 0, E_INVALIDARG},
    {"SystemEffectsRecord", 56, true, true, 56, S_OK},
    {"SystemEffects2Record", 88, true, true, 88, S_OK},
    {"OtherSize", 64, true, true, 64, E_INVALIDARG},
    {"RightSizeNoData", 88, false, true, 88, E_INVALIDARG},
    {"NoPropertyStore", 88, true, false, 88, E_INVALIDARG},
    {"BaseObjectRefusesRecordStillOk", 88, true, true, 12, S_OK},
};

INSTANTIATE_TEST_SUITE_P(Initialize, InitializeSizes, ::testing::ValuesIn(kInitCases), CaseName);

struct FormatCase {
  const char* name;
  bool hasOpposite;
  UNCOMPRESSEDAUDIOFORMAT opposite, requested;
  HRESULT expected;
  // For S_FALSE: the suggestion.
  UINT32 channels;
  float rate;
  bool noRequested = false, noAnswerPointer = false;  // null passed for the requested format, for the answer's place
};

class InputFormat : public ::testing::TestWithParam<FormatCase> {};

TEST_P(InputFormat, AnswerAndSuggestion) {
  const FormatCase& c = GetParam();
  EffectHarness h;
  ComPtr<IAudioMediaType> opposite = c.hasOpposite ? MediaType(c.opposite) : ComPtr<IAudioMediaType>();
  ComPtr<IAudioMediaType> requested = c.noRequested ? ComPtr<IAudioMediaType>() : MediaType(c.requested), supported;
  IAudioMediaType** answer = c.noAnswerPointer ? nullptr : supported.Put();
  EXPECT_EQ(c.expected, h.Apo()->IsInputFormatSupported(opposite.Get(), requested.Get(), answer));
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
    {"NoRequestedFormat", false, {}, {}, E_POINTER, 0, 0, true},
    {"NoAnswerPointer", false, {}, MakeFloatFormat(2, 48000), E_POINTER, 0, 0, false, true},
};

INSTANTIATE_TEST_SUITE_P(Negotiation, InputFormat, ::testing::ValuesIn(kFormatCases), CaseName);

// A lock that succeeds (float32 stereo, 480 frames each way, the buffers
// apart) with one thing changed.
struct LockCall {
  UINT32 inputs = 1, outputs = 1;
  bool nullArray = false, overlap = false;
  UNCOMPRESSEDAUDIOFORMAT inFormat = MakeFloatFormat(2, 48000);
  UINT32 inMaxFrames = 480, signature = APO_CONNECTION_DESCRIPTOR_SIGNATURE;
};

struct LockCase {
  const char* name;
  void (*change)(LockCall&);
  HRESULT expected;
};

class LockChecks : public ::testing::TestWithParam<LockCase> {};

TEST_P(LockChecks, Code) {
  LockCall c;
  GetParam().change(c);
  EffectHarness h;
  std::vector<float> buffer(4 * 4096);
  ComPtr<IAudioMediaType> inType = MediaType(c.inFormat), outType = MediaType(MakeFloatFormat(2, 48000));
  APO_CONNECTION_DESCRIPTOR in{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(buffer.data()),
                               c.inMaxFrames, inType.Get(), c.signature};
  float* outStart = c.overlap ? buffer.data() + 4 : buffer.data() + 2 * 4096;
  APO_CONNECTION_DESCRIPTOR out{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(outStart), 480,
                                outType.Get(), APO_CONNECTION_DESCRIPTOR_SIGNATURE};
  APO_CONNECTION_DESCRIPTOR* ins[] = {&in, &in};
  APO_CONNECTION_DESCRIPTOR* outs[] = {&out, &out};
  EXPECT_EQ(GetParam().expected, h.Config()->LockForProcess(c.inputs, c.nullArray ? nullptr : ins, c.outputs, outs));
}

const LockCase kLockCases[] = {
    {"NullArray", [](LockCall& c) { c.nullArray = true; }, E_POINTER},
    {"NoInput", [](LockCall& c) { c.inputs = 0; }, APOERR_NUM_CONNECTIONS_INVALID},
    {"TwoOutputs", [](LockCall& c) { c.outputs = 2; }, APOERR_NUM_CONNECTIONS_INVALID},
    {"IntegerInput", [](LockCall& c) { c.inFormat = Pcm16(2, 48000); }, APOERR_FORMAT_NOT_SUPPORTED},
    {"ChannelMismatch", [](LockCall& c) { c.inFormat = MakeFloatFormat(1, 48000); }, APOERR_FORMAT_NOT_SUPPORTED},
    {"BadSignature", [](LockCall& c) { c.signature = 0x12345678; }, E_INVALIDARG},
    {"InputLargerThanOutput", [](LockCall& c) { c.inMaxFrames = 960; }, APOERR_INVALID_OUTPUT_MAXFRAMECOUNT},
    {"OverlappingBuffers", [](LockCall& c) { c.overlap = true; }, APOERR_BUFFERS_OVERLAP},
};

INSTANTIATE_TEST_SUITE_P(Lock, LockChecks, ::testing::ValuesIn(kLockCases), CaseName);

// The audio engine may ask again and again; a refusal logged below the level
// must not cost memory (its error text is never made).
TEST(InputFormatQueries, RefusalsBelowTheLogLevelLeaveMemoryAlone) {
  ASSERT_EQ(LOG_ERROR, Logger::Instance().Level());
  EffectHarness h;
  ComPtr<IAudioMediaType> requested = MediaType(Pcm16(2, 44100));
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
