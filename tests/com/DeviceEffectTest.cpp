// The wrapped device effect: a COM class of the test's own that halves every
// sample, registered with COM in this process and named by the endpoint's
// "Original-Apo" setting, driven through Quillon.dll as the audio engine
// drives it. Quillon.dll creates it with CoCreateInstance, as it creates an
// endpoint's real effect.
#include "support/EffectHarness.h"
#include "support/QuillonDll.h"
#include "support/RegistryValue.h"

#include <atomic>

namespace quillon::test {
namespace {

// {B0C5E7A2-4D1F-4E8B-9A63-2F7D5C1E8B40}
const CLSID kDeviceClsid = {0xB0C5E7A2, 0x4D1F, 0x4E8B, {0x9A, 0x63, 0x2F, 0x7D, 0x5C, 0x1E, 0x8B, 0x40}};
constexpr const wchar_t* kDeviceClsidText = L"{B0C5E7A2-4D1F-4E8B-9A63-2F7D5C1E8B40}";
constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{a1b2c3d4-0000-4000-8000-00000000e0e0}";

// What the device effect answers, set per test.
struct Answers {
  bool failInitialize = false;
  HRESULT lock = S_OK, unlock = S_OK, format = S_OK;
  HNSTIME latency = 0;
};
Answers answers;
std::atomic<long> devicesAlive{0};

class HalvingEffect final : public IAudioProcessingObject,
                            public IAudioProcessingObjectRT,
                            public IAudioProcessingObjectConfiguration {
 public:
  HalvingEffect() { ++devicesAlive; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioProcessingObject)) {
      *ppv = static_cast<IAudioProcessingObject*>(this);
    } else if (IsEqualIID(riid, IID_IAudioProcessingObjectRT)) {
      *ppv = static_cast<IAudioProcessingObjectRT*>(this);
    } else if (IsEqualIID(riid, IID_IAudioProcessingObjectConfiguration)) {
      *ppv = static_cast<IAudioProcessingObjectConfiguration*>(this);
    } else {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) {
      --devicesAlive;
      delete this;
    }
    return left;
  }

  HRESULT STDMETHODCALLTYPE Reset() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* time) override {
    *time = answers.latency;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Initialize(UINT32, BYTE*) override { return answers.failInitialize ? E_ACCESSDENIED : S_OK; }
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType*, IAudioMediaType* requested,
                                                   IAudioMediaType** supported) override {
    requested->AddRef();
    *supported = requested;
    return answers.format;
  }
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType*, IAudioMediaType*, IAudioMediaType**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32*) override { return E_NOTIMPL; }

  void STDMETHODCALLTYPE APOProcess(UINT32, APO_CONNECTION_PROPERTY** in, UINT32,
                                    APO_CONNECTION_PROPERTY** out) override {
    const auto* src = reinterpret_cast<const float*>(in[0]->pBuffer);
    auto* dst = reinterpret_cast<float*>(out[0]->pBuffer);
    for (UINT32 i = 0; i < in[0]->u32ValidFrameCount * channels_; ++i) dst[i] = src[i] * 0.5f;
  }
  UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 n) override { return n; }
  UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 n) override { return n; }

  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32, APO_CONNECTION_DESCRIPTOR** in, UINT32,
                                           APO_CONNECTION_DESCRIPTOR**) override {
    if (FAILED(answers.lock)) return answers.lock;
    UNCOMPRESSEDAUDIOFORMAT format{};
    in[0]->pFormat->GetUncompressedAudioFormat(&format);
    channels_ = format.dwSamplesPerFrame;
    return answers.lock;
  }
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override { return answers.unlock; }

 private:
  ~HalvingEffect() = default;
  std::atomic<ULONG> refs_{1};
  UINT32 channels_ = 0;
};

class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory) ? this : nullptr;
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    auto* effect = new HalvingEffect();
    const HRESULT hr = effect->QueryInterface(riid, ppv);
    effect->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
} factory;

// The device effect's class registered with COM for the test, the log at
// trace level, and the endpoint's settings removed afterwards.
class DeviceEffectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    answers = Answers();
    logLevel_.SetString(L"trace");
    DeleteLog();
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ASSERT_EQ(S_OK, CoRegisterClassObject(kDeviceClsid, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie_));
    ASSERT_TRUE(dll_.Loaded());
  }
  void TearDown() override {
    CoRevokeClassObject(cookie_);
    CoUninitialize();
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(kQuillonKey) + L"\\" + kEndpoint).c_str());
    EXPECT_EQ(0, devicesAlive) << "a device effect is still alive";
  }

  ScopedRegistryValue logLevel_{HKEY_LOCAL_MACHINE, kQuillonKey, L"LogLevel"};
  ScopedRegistryValue original_{HKEY_LOCAL_MACHINE, std::wstring(kQuillonKey) + L"\\" + kEndpoint, L"Original-Apo"};
  QuillonDll dll_;
  DWORD cookie_ = 0;
};

struct DeviceCase {
  const char* name;
  const wchar_t* originalApo;  // null: no setting
  Answers answers;
  bool halves;                 // the device effect processes the stream
  const char* logged;          // a text the log must hold afterwards, or null
  const char* notLogged;       // a text the log must not hold, or null
};

class WrappedDeviceEffect : public DeviceEffectTest, public ::testing::WithParamInterface<DeviceCase> {};

TEST_P(WrappedDeviceEffect, ProcessesFirstOrIsLeftOut) {
  const DeviceCase& c = GetParam();
  if (c.originalApo != nullptr) ASSERT_TRUE(original_.SetString(c.originalApo));
  answers = c.answers;
  {
    auto h = EffectHarness::Started(kEndpoint, 2, 4, dll_.CreateEffect());
    const std::vector<float> mic = {0.5f, -0.25f, 1.0f, 0.125f, 0.75f, -1.0f, 0.0f, 0.5f};
    std::vector<float> out = h->Process(mic);
    for (size_t i = 0; i < mic.size(); ++i) EXPECT_FLOAT_EQ(c.halves ? mic[i] / 2 : mic[i], out[i]) << i;
    ASSERT_EQ(S_OK, h->Unlock());
  }
  const std::string log = LogText();
  if (c.logged != nullptr) EXPECT_NE(std::string::npos, log.find(c.logged)) << log;
  if (c.notLogged != nullptr) EXPECT_EQ(std::string::npos, log.find(c.notLogged)) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Com, WrappedDeviceEffect,
    ::testing::Values(
        DeviceCase{"Wrapped", kDeviceClsidText, {}, true, "Successfully created and initialized original APO",
                   "Failed"},
        DeviceCase{"NoSetting", nullptr, {}, false, nullptr, "original apo"},
        DeviceCase{"OwnClassInLowerCase", L"{27384e53-9860-0ac3-9519-c60ebcaa2c71}", {}, false, nullptr,
                   "original apo"},
        DeviceCase{"MalformedText", L"{not-a-class-id}", {}, false, "Failed to init original apo [Line=139, Code=",
                   nullptr},
        DeviceCase{"UnregisteredClass", L"{00000000-1111-2222-3333-444444444444}", {}, false,
                   "Failed to init original apo [Line=141, Code=80040154", nullptr},
        DeviceCase{"InitializeFails", kDeviceClsidText, {true}, false,
                   "Failed to init original apo [Line=144, Code=80070005", nullptr},
        DeviceCase{"LockRefusedDropsIt", kDeviceClsidText, {false, E_FAIL}, false,
                   "Failed in LockForProcess of original apo [Code=80004005", nullptr},
        DeviceCase{"LockWarningCodeKeepsIt", kDeviceClsidText, {false, S_FALSE}, true, nullptr, "Failed"}),
    [](const auto& info) { return std::string(info.param.name); });

// An effect created through Quillon.dll for an endpoint whose Original-Apo is
// the test's device effect, initialized.
class DeviceEffectAnswers : public DeviceEffectTest {
 protected:
  void SetUp() override {
    DeviceEffectTest::SetUp();
    ASSERT_TRUE(original_.SetString(kDeviceClsidText));
    apo_ = dll_.CreateEffect();
    h_ = std::make_unique<EffectHarness>(kEndpoint, apo_);
    ASSERT_EQ(S_OK, h_->Initialize());
  }
  void TearDown() override {
    h_.reset();
    apo_ = ComPtr<IAudioProcessingObject>();
    DeviceEffectTest::TearDown();
  }

  ComPtr<IAudioProcessingObject> apo_;
  std::unique_ptr<EffectHarness> h_;
};

TEST_F(DeviceEffectAnswers, LatencyIsTheDeviceEffects) {
  answers.latency = 20000;
  HNSTIME time = 0;
  EXPECT_EQ(S_OK, apo_->GetLatency(&time));
  EXPECT_EQ(20000, time);
  EXPECT_EQ(E_POINTER, apo_->GetLatency(nullptr));
}

TEST_F(DeviceEffectAnswers, AnyFormatAnswerButOkIsFinal) {
  ComPtr<IAudioMediaType> format;
  CreateAudioMediaType(MakeFloatFormat(2, 48000), format.Put());
  for (HRESULT answer : {S_FALSE, static_cast<HRESULT>(0x887D0003)}) {
    answers.format = answer;
    ComPtr<IAudioMediaType> supported;
    EXPECT_EQ(answer, apo_->IsInputFormatSupported(nullptr, format.Get(), supported.Put()));
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
  answers.unlock = E_UNEXPECTED;
  EXPECT_EQ(E_UNEXPECTED, h_->Unlock());
  EXPECT_EQ(APOERR_APO_LOCKED, h_->Lock(2, 4));
  answers.unlock = S_OK;
  EXPECT_EQ(S_OK, h_->Unlock());
}

TEST_F(DeviceEffectAnswers, SilentInputDiscardsTheDeviceOutput) {
  ASSERT_EQ(S_OK, h_->Lock(2, 4));
  EXPECT_EQ(std::vector<float>(8, 0.0f), h_->Process(std::vector<float>(8, 0.5f), BUFFER_SILENT));
  EXPECT_EQ(static_cast<UINT32>(BUFFER_SILENT), h_->OutputProperty().u32BufferFlags);
  EXPECT_EQ(std::vector<float>(8, 0.25f), h_->Process(std::vector<float>(8, 0.5f)));
}

// A repeated Initialize replaces the device effect (the fixture checks that
// none is left alive).
TEST_F(DeviceEffectAnswers, RepeatedInitializeReplacesTheDeviceEffect) {
  ASSERT_EQ(S_OK, h_->Initialize());
  EXPECT_EQ(1, devicesAlive);
}

}  // namespace
}  // namespace quillon::test
