// Creation, Initialize, latency and the aggregate's identity and reference counts.
#include "support/EffectHarness.h"

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
  tools::EndpointProperties store(kEndpoint);
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
  tools::EndpointProperties store(L"");
  APOInitSystemEffects init{};
  init.APOInit.cbSize = sizeof(init);
  init.APOInit.clsid = QuillonRegistrationProperties().clsid;
  init.pAPOEndpointProperties = &store;
  EXPECT_EQ(S_OK, h.Apo()->Initialize(sizeof(init), reinterpret_cast<BYTE*>(&init)));
  EXPECT_TRUE(h.Effect()->EndpointId().empty());
}

TEST(Latency, NoneOfItsOwn) {
  EffectHarness h;
  EXPECT_EQ(E_POINTER, h.Apo()->GetLatency(nullptr));
  HNSTIME latency = -1;
  EXPECT_EQ(S_OK, h.Apo()->GetLatency(&latency));
  EXPECT_EQ(0, latency);
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

}  // namespace
}  // namespace quillon::test
