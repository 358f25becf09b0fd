// The wrapped device effect: a COM class of the tests' own (halving every
// sample), named by the endpoint's "Original-Apo" setting, driven through
// Quillon.dll as the audio engine drives it.
#include "support/EffectHarness.h"
#include "support/QuillonDll.h"
#include "support/RegistryValue.h"

#include <fstream>
#include <sstream>

namespace quillon::test {
namespace {

constexpr const wchar_t* kDeviceClsid = L"{B0C5E7A2-4D1F-4E8B-9A63-2F7D5C1E8B40}";
constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{a1b2c3d4-0000-4000-8000-00000000e0e0}";
constexpr const wchar_t* kSwitchesKey = L"Software\\QuillonTests\\DeviceEffect";

std::string LogText() {
  wchar_t programData[MAX_PATH] = {};
  GetEnvironmentVariableW(L"ProgramData", programData, MAX_PATH);
  std::ifstream in(std::wstring(programData) + L"\\Marrowin\\Brisvale\\Quillon.log", std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct DeviceCase {
  const char* name;
  const wchar_t* originalApo;  // null: no setting
  const wchar_t* switchName;   // null: none
  bool halves;                 // the device effect processes the stream
  const char* logged;          // a text the log must hold afterwards, or null
  const char* notLogged;       // a text the log must not hold, or null
};

class WrappedDeviceEffect : public ::testing::TestWithParam<DeviceCase> {
 protected:
  void SetUp() override {
    logLevel_.SetString(L"trace");
    DeleteFileW(L"C:\\ProgramData\\Marrowin\\Brisvale\\Quillon.log");
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
  if (c.switchName != nullptr) ASSERT_TRUE(failure.SetDword(1));
  {
    QuillonDll dll;
    ASSERT_TRUE(dll.Loaded());
    ComPtr<IAudioProcessingObject> apo;
    ASSERT_EQ(S_OK, dll.CreateEffect(IID_IAudioProcessingObject, apo.PutVoid()));
    EffectHarness h(apo, kEndpoint);
    ASSERT_EQ(S_OK, h.Initialize());
    ASSERT_EQ(S_OK, h.Lock(2, 4));
    const std::vector<float> mic = {0.5f, -0.25f, 1.0f, 0.125f, 0.75f, -1.0f, 0.0f, 0.5f};
    std::vector<float> out = h.Process(mic);
    for (size_t i = 0; i < mic.size(); ++i) EXPECT_FLOAT_EQ(c.halves ? mic[i] / 2 : mic[i], out[i]) << i;
    ASSERT_EQ(S_OK, h.Unlock());
  }
  CoUninitialize();
  const std::string log = LogText();
  if (c.logged != nullptr) EXPECT_NE(std::string::npos, log.find(c.logged)) << log;
  if (c.notLogged != nullptr) EXPECT_EQ(std::string::npos, log.find(c.notLogged)) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Com, WrappedDeviceEffect,
    ::testing::Values(
        DeviceCase{"Wrapped", kDeviceClsid, nullptr, true, "Successfully created and initialized original APO",
                   "Failed"},
        DeviceCase{"NoSetting", nullptr, nullptr, false, nullptr, "original apo"},
        DeviceCase{"OwnClassInLowerCase", L"{27384e53-9860-0ac3-9519-c60ebcaa2c71}", nullptr, false, nullptr,
                   "original apo"},
        DeviceCase{"MalformedText", L"{not-a-class-id}", nullptr, false,
                   "Failed to init original apo [Line=139, Code=", nullptr},
        DeviceCase{"UnregisteredClass", L"{00000000-1111-2222-3333-444444444444}", nullptr, false,
                   "Failed to init original apo [Line=141, Code=80040154", nullptr},
        DeviceCase{"InitializeFails", kDeviceClsid, L"FailInitialize", false,
                   "Failed to init original apo [Line=144, Code=80070005", nullptr},
        DeviceCase{"LockRefusedDropsIt", kDeviceClsid, L"FailLock", false,
                   "Failed in LockForProcess of original apo [Code=80004005", nullptr}),
    [](const auto& info) { return std::string(info.param.name); });

class DeviceEffectAnswers : public WrappedDeviceEffect {};

TEST_F(DeviceEffectAnswers, LatencyAndRefusedFormats) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  ScopedRegistryValue original(HKEY_LOCAL_MACHINE, std::wstring(kQuillonKey) + L"\\" + kEndpoint, L"Original-Apo");
  ASSERT_TRUE(original.SetString(kDeviceClsid));
  ScopedRegistryValue latency(HKEY_CURRENT_USER, kSwitchesKey, L"Latency");
  ASSERT_TRUE(latency.SetDword(20000));
  ScopedRegistryValue refuse(HKEY_CURRENT_USER, kSwitchesKey, L"RefuseFormats");
  ASSERT_TRUE(refuse.SetDword(1));
  {
    QuillonDll dll;
    ComPtr<IAudioProcessingObject> apo;
    ASSERT_EQ(S_OK, dll.CreateEffect(IID_IAudioProcessingObject, apo.PutVoid()));
    EffectHarness h(apo, kEndpoint);
    ASSERT_EQ(S_OK, h.Initialize());
    HNSTIME time = 0;
    EXPECT_EQ(S_OK, apo->GetLatency(&time));
    EXPECT_EQ(20000, time);
    ComPtr<IAudioMediaType> format, supported;
    CreateAudioMediaType(MakeFloatFormat(2, 48000), format.Put());
    EXPECT_EQ(APOERR_FORMAT_NOT_SUPPORTED, apo->IsInputFormatSupported(nullptr, format.Get(), supported.Put()));
  }
  CoUninitialize();
  EXPECT_NE(std::string::npos, LogText().find("Input format is not supported by original apo [Code=887d0003"));
}

// The COM runtime loads the library from the class key an installer writes,
// and unloads it only once every object is released.
TEST(ComRuntime, CreatesAWorkingEffectAndUnloadsWhenReleased) {
  ScopedComClass quillonClass(kQuillonClsidText, QuillonDllPath());
  ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  {
    ComPtr<IAudioProcessingObject> apo;
    ASSERT_EQ(S_OK, CoCreateInstance(kQuillonClsid, nullptr, CLSCTX_INPROC_SERVER, IID_IAudioProcessingObject,
                                     apo.PutVoid()));
    EXPECT_NE(nullptr, GetModuleHandleW(L"Quillon.dll"));
    EffectHarness h(apo, EffectHarness::kDefaultEndpoint);
    ASSERT_EQ(S_OK, h.Initialize());
    ASSERT_EQ(S_OK, h.Lock(2, 4));
    const std::vector<float> mic = {0.5f, -0.25f, 1.0f, 0.125f, 0.75f, -1.0f, 0.0f, 0.5f};
    EXPECT_EQ(mic, h.Process(mic));
    ASSERT_EQ(S_OK, h.Unlock());
    CoFreeUnusedLibrariesEx(0, 0);
    EXPECT_NE(nullptr, GetModuleHandleW(L"Quillon.dll")) << "an effect is still alive";
  }
  CoFreeUnusedLibrariesEx(0, 0);
  EXPECT_EQ(nullptr, GetModuleHandleW(L"Quillon.dll"));
  CoUninitialize();
}

}  // namespace
}  // namespace quillon::test
