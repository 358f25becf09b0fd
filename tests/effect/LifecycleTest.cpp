// Initialize with each record the audio engine may pass, and what each gives.
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

}  // namespace
}  // namespace quillon::test
