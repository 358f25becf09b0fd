// The wrapped device effect (support/HalvingDeviceEffect.h), named by the
// endpoint's "Original-Apo" setting, driven through Quillon.dll as the audio
// engine drives it. Quillon.dll creates it with CoCreateInstance, as it
// creates an endpoint's real effect.
#include "diag/Logger.h"
#include "support/EffectHarness.h"
#include "support/HalvingDeviceEffect.h"
#include "support/QuillonDll.h"
#include "support/RegistryValue.h"

namespace quillon::test {
namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{a1b2c3d4-0000-4000-8000-00000000e0e0}";

// The device effect's class registered with COM for the test, the log at
// trace level, and the endpoint's settings removed afterwards; the effect a
// test keeps in `h_` is released before the check that no device effect lives.
class DeviceEffectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    answers = Answers();
    logLevel_.SetString(kLogLevels[LOG_TRACE].text);
    DeleteLog();
    ASSERT_EQ(S_OK, deviceClass_.Registered());
    ASSERT_TRUE(dll_.Loaded());
  }
  void TearDown() override {
    h_.reset();
    DeleteKeys({EndpointSettingsKey(kEndpoint)});
    EXPECT_EQ(0, devicesAlive) << "a device effect is still alive";
  }

  ScopedRegistryValue logLevel_{HKEY_LOCAL_MACHINE, kSettingsKey, kLogLevelValue};
  ScopedRegistryValue original_{HKEY_LOCAL_MACHINE, EndpointSettingsKey(kEndpoint), kOriginalApoValue};
  QuillonDll dll_;
  ScopedHalvingEffectClass deviceClass_;
  std::unique_ptr<EffectHarness> h_;
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
  h_ = EffectHarness::Started(kEndpoint, 2, 4, dll_.CreateEffect());
  const std::vector<float> mic = {0.5f, -0.25f, 1.0f, 0.125f, 0.75f, -1.0f, 0.0f, 0.5f};
  std::vector<float> out = h_->Process(mic);
  for (size_t i = 0; i < mic.size(); ++i) EXPECT_FLOAT_EQ(c.halves ? mic[i] / 2 : mic[i], out[i]) << i;
  ASSERT_EQ(S_OK, h_->Unlock());
  h_.reset();  // the log is read once the effect and its device effect are released
  const std::string log = LogText();
  if (c.logged != nullptr) EXPECT_NE(std::string::npos, log.find(c.logged)) << log;
  if (c.notLogged != nullptr) EXPECT_EQ(std::string::npos, log.find(c.notLogged)) << log;
}

const DeviceCase kDeviceCases[] = {
    {"Wrapped", kDeviceClsidText, {}, true, "Successfully created and initialized original APO", "Failed"},
    {"NoSetting", nullptr, {}, false, nullptr, "original apo"},
    {"OwnClassInLowerCase", L"{27384e53-9860-0ac3-9519-c60ebcaa2c71}", {}, false, nullptr, "original apo"},
    {"MalformedText", L"{not-a-class-id}", {}, false, "Failed to init original apo [Line=139, Code=", nullptr},
    {"UnregisteredClass", L"{00000000-1111-2222-3333-444444444444}", {}, false,
     "Failed to init original apo [Line=141, Code=80040154", nullptr},
    {"InitializeFails", kDeviceClsidText, {true}, false,
     "Failed to init original apo [Line=144, Code=80070005", nullptr},
    {"LockRefusedDropsIt", kDeviceClsidText, {false, E_FAIL}, false,
     "Failed in LockForProcess of original apo [Code=80004005", nullptr},
    {"LockWarningCodeKeepsIt", kDeviceClsidText, {false, S_FALSE}, true, nullptr, "Failed"},
};

INSTANTIATE_TEST_SUITE_P(Com, WrappedDeviceEffect, ::testing::ValuesIn(kDeviceCases), CaseName);

// An effect created through Quillon.dll for an endpoint whose Original-Apo is
// the test's device effect, initialized.
class DeviceEffectAnswers : public DeviceEffectTest {
 protected:
  void SetUp() override {
    DeviceEffectTest::SetUp();
    ASSERT_TRUE(original_.SetString(kDeviceClsidText));
    h_ = std::make_unique<EffectHarness>(kEndpoint, dll_.CreateEffect());
    ASSERT_EQ(S_OK, h_->Initialize());
  }
};

TEST_F(DeviceEffectAnswers, LatencyIsTheDeviceEffects) {
  answers.latency = 20000;
  HNSTIME time = 0;
  EXPECT_EQ(S_OK, h_->Apo()->GetLatency(&time));
  EXPECT_EQ(20000, time);
  EXPECT_EQ(E_POINTER, h_->Apo()->GetLatency(nullptr));
}

TEST_F(DeviceEffectAnswers, AnyFormatAnswerButOkIsFinal) {
  ComPtr<IAudioMediaType> format = MediaType(MakeFloatFormat(2, 48000));
  for (HRESULT answer : {S_FALSE, static_cast<HRESULT>(0x887D0003)}) {
    answers.format = answer;
    ComPtr<IAudioMediaType> supported;
    EXPECT_EQ(answer, h_->Apo()->IsInputFormatSupported(nullptr, format.Get(), supported.Put()));
    EXPECT_EQ(format.Get(), supported.Get()) << "the device effect's suggestion stays";
  }
  EXPECT_NE(std::string::npos, LogText().find("Input format is not supported by original apo [Code=887d0003"));
}

TEST_F(DeviceEffectAnswers, AcceptedFormatStillPassesTheEffectsCheck) {
  ComPtr<IAudioMediaType> pcm = MediaType(Pcm16(2, 48000)), supported;
  EXPECT_EQ(S_FALSE, h_->Apo()->IsInputFormatSupported(nullptr, pcm.Get(), supported.Put()));
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
