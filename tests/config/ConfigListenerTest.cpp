// Settings that change while audio runs: block voice, the per-endpoint gain and
// the log level, each seen within a bounded time.
#include "diag/Logger.h"
#include "support/EffectHarness.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"


namespace quillon::test {
namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{c0ffee00-1111-4222-8333-444455556666}";
constexpr const wchar_t* kOtherEndpoint = L"{0.0.1.00000000}.{c0ffee00-9999-4222-8333-444455556666}";

std::wstring GainKey(const wchar_t* endpoint) { return std::wstring(kQuillonKey) + L"\\" + endpoint + L",1"; }

// Polls `done` for at most ten seconds.
template <typename Done>
bool Within(Done done) {
  for (int i = 0; i < 2000; ++i) {
    if (done()) return true;
    Sleep(5);
  }
  return done();
}

class ConfigListener : public ::testing::Test {
 protected:
  void SetUp() override {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, GainKey(kEndpoint).c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, GainKey(kOtherEndpoint).c_str());
    DeleteLog();
    ASSERT_TRUE(level.SetString(L"trace"));
    // The listener's first pass raises the level from ERROR to TRACE and says
    // so: the sign that the settings have been read once.
    Logger::Instance().SetLevel(LOG_ERROR);
    ASSERT_EQ(S_OK, h.Initialize());
    ASSERT_EQ(S_OK, h.Lock(2, 4));
    ASSERT_NE(-1, h.Slot());
    ASSERT_TRUE(Within([] { return LogText().find("| Changed log level to TRACE #]") != std::string::npos; }));
  }
  void TearDown() override {
    h.Unlock();
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, GainKey(kEndpoint).c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, GainKey(kOtherEndpoint).c_str());
    Logger::Instance().SetLevel(LOG_ERROR);
  }

  // The microphone gain as heard in the output.
  float HeardGain() {
    std::vector<float> out = h.Process(std::vector<float>(8, 0.5f));
    return out[0] / 0.5f;
  }

  ScopedRegistryValue level{HKEY_LOCAL_MACHINE, kQuillonKey, L"LogLevel"};
  ScopedRegistryValue blockVoice{HKEY_LOCAL_MACHINE, kQuillonKey, L"FilterBlockVoice"};
  EffectHarness h{kEndpoint};
};

TEST_F(ConfigListener, DefaultsNeedNoChangeMessages) {
  EXPECT_EQ(1.0f, HeardGain());
  const std::string log = LogText();
  EXPECT_EQ(std::string::npos, log.find("Changed mic amp"));
  EXPECT_EQ(std::string::npos, log.find("Changed filter block voice"));
}

struct GainCase {
  DWORD decibels;
  float gain;
  const char* printed;
};

TEST_F(ConfigListener, MicGainFollowsThisEndpointsSetting) {
  const GainCase cases[] = {{6, 1.9952623f, "Changed mic amp to 2.00"},
                            {20, 10.0f, "Changed mic amp to 10.00"},
                            {100, 31.622776f, "Changed mic amp to 31.62"},
                            {0xFFFFFFFF, 31.622776f, nullptr},
                            {0, 1.0f, "Changed mic amp to 1.00"}};
  ScopedRegistryValue gain(HKEY_LOCAL_MACHINE, GainKey(kEndpoint), L"MicAmpInDb");
  for (const GainCase& c : cases) {
    ASSERT_TRUE(gain.SetDword(c.decibels));
    EXPECT_TRUE(Within([&] { return QuillonTestAccess::MicGain(h.Effect()) == c.gain; })) << c.decibels;
    EXPECT_FLOAT_EQ(c.gain, HeardGain()) << c.decibels;
    // The listener stores the gain before it logs the change: wait for the line too.
    if (c.printed != nullptr) {
      EXPECT_TRUE(Within([&] { return LogText().find(c.printed) != std::string::npos; })) << c.printed;
    }
  }
  // A deleted value returns the gain to 1.
  ASSERT_TRUE(gain.SetDword(6));
  ASSERT_TRUE(Within([&] { return QuillonTestAccess::MicGain(h.Effect()) != 1.0f; }));
  gain.Delete();
  EXPECT_TRUE(Within([&] { return QuillonTestAccess::MicGain(h.Effect()) == 1.0f; }));
}

TEST_F(ConfigListener, AnotherEndpointsGainWakesButChangesNothing) {
  ScopedRegistryValue other(HKEY_LOCAL_MACHINE, GainKey(kOtherEndpoint), L"MicAmpInDb");
  ASSERT_TRUE(other.SetDword(20));
  // Then a change of our own, to know the listener has looked since.
  ASSERT_TRUE(blockVoice.SetDword(1));
  ASSERT_TRUE(Within([&] { return LogText().find("Changed filter block voice to on") != std::string::npos; }));
  EXPECT_EQ(1.0f, QuillonTestAccess::MicGain(h.Effect()));
}

TEST_F(ConfigListener, BlockVoiceReplacesTheMicWhileSoundPlays) {
  h.Process(std::vector<float>(8, 0.0f));
  ASSERT_TRUE(blockVoice.SetDword(1));
  ASSERT_TRUE(Within([&] { return LogText().find("Changed filter block voice to on") != std::string::npos; }));
  ASSERT_TRUE(h.Accept(std::vector<float>(8, 0.125f)));
  EXPECT_EQ(std::vector<float>(8, 0.125f), h.Process(std::vector<float>(8, 0.5f)));
  // Stored as text it cannot be read: block voice goes off again.
  ASSERT_TRUE(blockVoice.SetString(L"1"));
  EXPECT_TRUE(Within([&] { return LogText().find("Changed filter block voice to off") != std::string::npos; }));
}

TEST_F(ConfigListener, LogLevelFollowsTheSetting) {
  ASSERT_TRUE(level.SetString(L"warn"));
  EXPECT_TRUE(Within([] { return Logger::Instance().Level() == LOG_WARNING; }));
  EXPECT_TRUE(Within([] { return LogText().find("| Changed log level to WARNING #]") != std::string::npos; }));
  level.Delete();
  EXPECT_TRUE(Within([] { return Logger::Instance().Level() == LOG_ERROR; }));
  EXPECT_TRUE(Within([] { return LogText().find("| Changed log level to ERROR #]") != std::string::npos; }));
}

TEST_F(ConfigListener, UnlockEndsTheListener) {
  ASSERT_EQ(S_OK, h.Unlock());
  EXPECT_NE(std::string::npos, LogText().find("Config change listener thread finished"));
  ASSERT_EQ(S_OK, h.Lock(2, 4));
}

}  // namespace
}  // namespace quillon::test
