// Creation, Initialize, latency and the aggregate's identity and reference counts.
#include "com/ModuleCounters.h"
#include "support/EffectHarness.h"
#include "support/FakeDeviceEffect.h"

namespace quillon::test {
namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{6d2b5c1e-0a3f-4b7e-9d41-2f8c7a9e1b3d}";

struct InitCase {
  const char* name;
  UINT32 size;
  bool withData;
  bool withStore;
  UINT32 recordSize;  // cbSize written into the record (the base object checks it)
  HRESULT expected;
};

class InitializeSizes : public ::testing::TestWithParam<InitCase> {};

TEST_P(InitializeSizes, Result) {
  const InitCase& c = GetParam();
  EffectHarness h;
  FakePropertyStore store(kEndpoint);
  alignas(8) BYTE record[128] = {};
  auto* init = reinterpret_cast<APOInitSystemEffects2*>(record);
  init->APOInit.cbSize = c.recordSize;
  init->APOInit.clsid = QuillonRegistrationProperties().clsid;
  init->pAPOEndpointProperties = c.withStore ? &store : nullptr;
  EXPECT_EQ(c.expected, h.Apo()->Initialize(c.size, c.withData ? record : nullptr));
  EXPECT_EQ(c.expected == S_OK ? std::wstring(kEndpoint) : std::wstring(), h.Effect()->EndpointId());
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

INSTANTIATE_TEST_SUITE_P(Initialize, InitializeSizes, ::testing::ValuesIn(kInitCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Initialize, FailedEndpointReadLeavesEndpointEmpty) {
  EffectHarness h;
  FakePropertyStore store(L"");
  APOInitSystemEffects init{};
  init.APOInit.cbSize = sizeof(init);
  init.APOInit.clsid = QuillonRegistrationProperties().clsid;
  init.pAPOEndpointProperties = &store;
  EXPECT_EQ(S_OK, h.Apo()->Initialize(sizeof(init), reinterpret_cast<BYTE*>(&init)));
  EXPECT_TRUE(h.Effect()->EndpointId().empty());
}

TEST(Latency, ReportsExactlyTheDeviceEffects) {
  EffectHarness h;
  EXPECT_EQ(E_POINTER, h.Apo()->GetLatency(nullptr));
  HNSTIME latency = -1;
  EXPECT_EQ(S_OK, h.Apo()->GetLatency(&latency));
  EXPECT_EQ(0, latency);
  FakeDeviceEffect device;
  device.latency = 123456;
  QuillonTestAccess::SetDeviceEffect(h.Effect(), &device);
  EXPECT_EQ(S_OK, h.Apo()->GetLatency(&latency));
  EXPECT_EQ(123456, latency);
}

TEST(Lifecycle, NewEffectStartsUnregisteredWithUnityGain) {
  EffectHarness h;
  EXPECT_EQ(-1, QuillonTestAccess::InstanceIndex(h.Effect()));
  EXPECT_EQ(1.0f, QuillonTestAccess::MicGain(h.Effect()));
  EXPECT_EQ(0u, h.Effect()->ChunkSize());
  EXPECT_EQ(S_OK, h.Apo()->Reset());
}

TEST(Lifecycle, RegistrationPropertiesCopy) {
  EffectHarness h;
  APO_REG_PROPERTIES* props = nullptr;
  ASSERT_EQ(S_OK, h.Apo()->GetRegistrationProperties(&props));
  EXPECT_TRUE(IsEqualCLSID(QuillonRegistrationProperties().clsid, props->clsid));
  EXPECT_EQ(14u, static_cast<UINT32>(props->Flags));
  EXPECT_STREQ(L"Quillon", props->szFriendlyName);
  EXPECT_EQ(1u, props->u32MajorVersion);
  EXPECT_EQ(8u, props->u32MinorVersion);
  EXPECT_TRUE(IsEqualIID(IID_IAudioProcessingObject, props->iidAPOInterfaceList[0]));
  CoTaskMemFree(props);
}

// ---- The aggregate -------------------------------------------------------------------
TEST(Aggregate, AnswersEveryEffectInterfaceAndCountsObjects) {
  const uint32_t before = objectCount.load();
  ComPtr<IUnknown> unknown;
  ASSERT_EQ(S_OK, QuillonAggregate::Create(nullptr, IID_IUnknown, unknown.PutVoid()));
  EXPECT_EQ(before + 2, objectCount.load()) << "aggregate and effect";
  for (const IID* iid : {&IID_IAudioProcessingObject, &IID_IAudioProcessingObjectRT,
                         &IID_IAudioProcessingObjectConfiguration, &IID_IAudioSystemEffects, &IID_IUnknown}) {
    ComPtr<IUnknown> itf;
    EXPECT_EQ(S_OK, unknown->QueryInterface(*iid, itf.PutVoid()));
    ComPtr<IUnknown> back;
    EXPECT_EQ(S_OK, itf->QueryInterface(IID_IUnknown, back.PutVoid()));
    EXPECT_EQ(unknown.Get(), back.Get()) << "one identity for every interface";
  }
  void* none = reinterpret_cast<void*>(1);
  EXPECT_EQ(E_NOINTERFACE, unknown->QueryInterface(IID_IClassFactory, &none));
  EXPECT_EQ(nullptr, none);
  unknown = ComPtr<IUnknown>();
  EXPECT_EQ(before, objectCount.load());
}

TEST(Aggregate, ReferenceCountsAreShared) {
  ComPtr<IAudioProcessingObject> apo;
  ASSERT_EQ(S_OK, QuillonAggregate::Create(nullptr, IID_IAudioProcessingObject, apo.PutVoid()));
  IAudioProcessingObjectRT* rt = nullptr;
  ASSERT_EQ(S_OK, apo->QueryInterface(IID_IAudioProcessingObjectRT, reinterpret_cast<void**>(&rt)));
  EXPECT_EQ(3u, rt->AddRef());
  EXPECT_EQ(2u, rt->Release());
  EXPECT_EQ(1u, rt->Release());
}

// An outer object that aggregates the effect: the effect's interfaces delegate their IUnknown to it.
class Outer final : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    ++queries;
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  ULONG refs = 1;
  int queries = 0;
};

TEST(Aggregate, AggregationOnlyThroughIUnknown) {
  Outer outer;
  void* ppv = reinterpret_cast<void*>(1);
  const uint32_t before = objectCount.load();
  EXPECT_EQ(E_NOINTERFACE, QuillonAggregate::Create(&outer, IID_IAudioProcessingObject, &ppv));
  EXPECT_EQ(before, objectCount.load()) << "nothing created";
  EXPECT_EQ(E_INVALIDARG, QuillonAggregate::Create(&outer, IID_IUnknown, nullptr));

  IUnknown* inner = nullptr;
  ASSERT_EQ(S_OK, QuillonAggregate::Create(&outer, IID_IUnknown, reinterpret_cast<void**>(&inner)));
  IAudioProcessingObject* apo = nullptr;
  ASSERT_EQ(S_OK, inner->QueryInterface(IID_IAudioProcessingObject, reinterpret_cast<void**>(&apo)));
  EXPECT_EQ(2u, outer.refs) << "the inner interface's reference belongs to the outer object";
  void* other = nullptr;
  apo->QueryInterface(IID_IAudioProcessingObjectRT, &other);
  EXPECT_EQ(1, outer.queries) << "the effect's QueryInterface delegates to the outer object";
  apo->Release();
  EXPECT_EQ(1u, outer.refs);
  EXPECT_EQ(0u, inner->Release());
  EXPECT_EQ(before, objectCount.load());
}

}  // namespace
}  // namespace quillon::test
