// The wrapped device effect: a COM class of the tests' own (halving every
// sample), named by the endpoint's "Original-Apo" setting, driven through
// Quillon.dll as the audio engine drives it.
#include "support/EffectHarness.h"
#include "support/QuillonDll.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"


namespace quillon::test {
namespace {

constexpr const wchar_t* kDeviceClsid = L"{B0C5E7A2-4D1F-4E8B-9A63-2F7D5C1E8B40}";
constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{a1b2c3d4-0000-4000-8000-00000000e0e0}";
constexpr const wchar_t* kSwitchesKey = L"Software\\QuillonTests\\DeviceEffect";

struct DeviceCase {
  const char* name;
  const wchar_t* originalApo;  // null: no setting
  const wchar_t* switchName;   // null: none
  DWORD switchValue;
  bool halves;                 // the device effect processes the stream
  const char* logged;          // a text the log must hold afterwards, or null
  const char* notLogged;       // a text the log must not hold, or null
};

class WrappedDeviceEffect : public ::testing::TestWithParam<DeviceCase> {
 protected:
  void SetUp() override {
    logLevel_.SetString(L"trace");
    DeleteLog();
  }
  void TearDown() override {
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\QuillonTests");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(kQuillonKey) + L"\\" + kEndpoint).c_str());
  }

  ScopedComClass deviceClass_{kDeviceClsid, ExecutableFolder() + L"quillon_test_device_effect.dll"};
  ScopedRegistryValue logLevel_{HKEY_LOCAL_MACHINE, kQuillonKey, L"LogLevel"};
};

TEST_P(WrappedDeviceEffect, ProcessesFirstOrIsLeftOut) {
  const DeviceCase& c = GetParam();
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  ScopedRegistryValue original(HKEY_LOCAL_MACHINE, std::wstring(kQuillonKey) + L"\\" + kEndpoint, L"Original-Apo");
  if (c.originalApo != nullptr) ASSERT_TRUE(original.SetString(c.originalApo));
  ScopedRegistryValue failure(HKEY_CURRENT_USER, kSwitchesKey, c.switchName ? c.switchName : L"None");
  if (c.switchName != nullptr) ASSERT_TRUE(failure.SetDword(c.switchValue));
  {
    QuillonDll dll;
    ASSERT_TRUE(dll.Loaded());
    ComPtr<IAudioProcessingObject> apo;
    ASSERT_EQ(S_OK, dll.CreateEffect(IID_IAudioProcessingObject, apo.PutVoid()));
    auto h = EffectHarness::Started(kEndpoint, 2, 4, apo);
    const std::vector<float> mic = {0.5f, -0.25f, 1.0f, 0.125f, 0.75f, -1.0f, 0.0f, 0.5f};
    std::vector<float> out = h->Process(mic);
    for (size_t i = 0; i < mic.size(); ++i) EXPECT_FLOAT_EQ(c.halves ? mic[i] / 2 : mic[i], out[i]) << i;
    ASSERT_EQ(S_OK, h->Unlock());
  }
  CoUninitialize();
  const std::string log = LogText();
  if (c.logged != nullptr) EXPECT_NE(std::string::npos, log.find(c.logged)) << log;
  if (c.notLogged != nullptr) EXPECT_EQ(std::string::npos, log.find(c.notLogged)) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Com, WrappedDeviceEffect,
    ::testing::Values(
        DeviceCase{"Wrapped", kDeviceClsid, nullptr, 0, true, "Successfully created and initialized original APO",
                   "Failed"},
        DeviceCase{"NoSetting", nullptr, nullptr, 0, false, nullptr, "original apo"},
        DeviceCase{"OwnClassInLowerCase", L"{27384e53-9860-0ac3-9519-c60ebcaa2c71}", nullptr, 0, false, nullptr,
                   "original apo"},
        DeviceCase{"MalformedText", L"{not-a-class-id}", nullptr, 0, false,
                   "Failed to init original apo [Line=139, Code=", nullptr},
        DeviceCase{"UnregisteredClass", L"{00000000-1111-2222-3333-444444444444}", nullptr, 0, false,
                   "Failed to init original apo [Line=141, Code=80040154", nullptr},
        DeviceCase{"InitializeFails", kDeviceClsid, L"FailInitialize", 1, false,
                   "Failed to init original apo [Line=144, Code=80070005", nullptr},
        DeviceCase{"LockRefusedDropsIt", kDeviceClsid, L"LockResult", 0x80004005, false,
                   "Failed in LockForProcess of original apo [Code=80004005", nullptr},
        DeviceCase{"LockWarningCodeKeepsIt", kDeviceClsid, L"LockResult", 1, true, nullptr, "Failed"}),
    [](const auto& info) { return std::string(info.param.name); });

// An effect created through Quillon.dll for an endpoint whose Original-Apo is
// the test device effect; the device effect's answers are set per test.
class DeviceEffectAnswers : public WrappedDeviceEffect {
 protected:
  void SetUp() override {
    WrappedDeviceEffect::SetUp();
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ASSERT_TRUE(original_.SetString(kDeviceClsid));
    ASSERT_TRUE(dll_.Loaded());
    ASSERT_EQ(S_OK, dll_.CreateEffect(IID_IAudioProcessingObject, apo_.PutVoid()));
    h_ = std::make_unique<EffectHarness>(kEndpoint, apo_);
    ASSERT_EQ(S_OK, h_->Initialize());
  }
  void TearDown() override {
    h_.reset();
    apo_ = ComPtr<IAudioProcessingObject>();
    CoUninitialize();
    WrappedDeviceEffect::TearDown();
  }
  void Answer(const wchar_t* name, DWORD value) {
    RegSetKeyValueW(HKEY_CURRENT_USER, kSwitchesKey, name, REG_DWORD, &value, sizeof(value));
  }

  ScopedRegistryValue original_{HKEY_LOCAL_MACHINE, std::wstring(kQuillonKey) + L"\\" + kEndpoint, L"Original-Apo"};
  QuillonDll dll_;
  ComPtr<IAudioProcessingObject> apo_;
  std::unique_ptr<EffectHarness> h_;
};

TEST_F(DeviceEffectAnswers, LatencyIsTheDeviceEffects) {
  Answer(L"Latency", 20000);
  HNSTIME time = 0;
  EXPECT_EQ(S_OK, apo_->GetLatency(&time));
  EXPECT_EQ(20000, time);
  EXPECT_EQ(E_POINTER, apo_->GetLatency(nullptr));
}

TEST_F(DeviceEffectAnswers, AnyFormatAnswerButOkIsFinal) {
  ComPtr<IAudioMediaType> format;
  CreateAudioMediaType(MakeFloatFormat(2, 48000), format.Put());
  for (DWORD answer : {1ul, 0x887D0003ul}) {
    Answer(L"FormatResult", answer);
    ComPtr<IAudioMediaType> supported;
    EXPECT_EQ(static_cast<HRESULT>(answer), apo_->IsInputFormatSupported(nullptr, format.Get(), supported.Put()));
    EXPECT_EQ(format.Get(), supported.Get()) << "the device effect's suggestion stays";
  }
  EXPECT_NE(std::string::npos, LogText().find("Input format is not supported by original apo [Code=887d0003"));
}

TEST_F(DeviceEffectAnswers, AcceptedFormatStillPassesTheEffectsCheck) {
  ComPtr<IAudioMediaType> pcm, supported;
  CreateAudioMediaType(MakeUncompressedFormat(KSDATAFORMAT_SUBTYPE_PCM_GUID, 2, 2, 16, 48000), pcm.Put());
  EXPECT_EQ(S_FALSE, apo_->IsInputFormatSupported(nullptr, pcm.Get(), supported.Put()));
  supported = ComPtr<IAudioMediaType>();
  EXPECT_EQ(2u, pcm->AddRef()) << "the device effect's reference to its answer was given back";
  pcm->Release();
}

TEST_F(DeviceEffectAnswers, FailedDeviceUnlockLeavesTheEffectLocked) {
  ASSERT_EQ(S_OK, h_->Lock(2, 4));
  Answer(L"UnlockResult", 0x8000FFFF);
  EXPECT_EQ(E_UNEXPECTED, h_->Unlock());
  EXPECT_EQ(APOERR_APO_LOCKED, h_->Lock(2, 4));
  Answer(L"UnlockResult", 0);
  EXPECT_EQ(S_OK, h_->Unlock());
}

TEST_F(DeviceEffectAnswers, SilentInputDiscardsTheDeviceOutput) {
  ASSERT_EQ(S_OK, h_->Lock(2, 4));
  EXPECT_EQ(std::vector<float>(8, 0.0f), h_->Process(std::vector<float>(8, 0.5f), BUFFER_SILENT));
  EXPECT_EQ(static_cast<UINT32>(BUFFER_SILENT), h_->OutputProperty().u32BufferFlags);
  EXPECT_EQ(std::vector<float>(8, 0.25f), h_->Process(std::vector<float>(8, 0.5f)));
}

TEST_F(DeviceEffectAnswers, RepeatedInitializeLeavesNoDeviceEffectBehind) {
  ASSERT_EQ(S_OK, h_->Initialize());
  h_.reset();
  apo_ = ComPtr<IAudioProcessingObject>();
  CoFreeUnusedLibrariesEx(0, 0);
  EXPECT_EQ(nullptr, GetModuleHandleW(L"quillon_test_device_effect.dll")) << "a device effect is still alive";
}

}  // namespace
}  // namespace quillon::test
