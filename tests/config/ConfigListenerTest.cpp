// The configuration listener on its own: settings that change in the registry
// while it runs reach the settings the real-time routine reads, and the log
// level, each within a bounded time.
#include "config/ConfigListener.h"
#include "diag/Logger.h"
#include "platform/UniqueResource.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"
#include "support/Poll.h"

#include <gtest/gtest.h>

namespace quillon::test {
namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{c0ffee00-1111-4222-8333-444455556666}";
constexpr const wchar_t* kOtherEndpoint = L"{0.0.1.00000000}.{c0ffee00-9999-4222-8333-444455556666}";

bool Logged(const char* text) { return PollUntil([&] { return LogText().find(text) != std::string::npos; }); }

class Listener : public ::testing::Test {
 protected:
  void SetUp() override {
    DeleteKeys({GainKey(kEndpoint), GainKey(kOtherEndpoint)});
    DeleteLog();
    ASSERT_TRUE(level.SetString(kLogLevels[LOG_TRACE].text));
    // The first pass raises the level from ERROR to TRACE and says so: the
    // sign that the settings have been read once.
    Logger::Instance().SetLevel(LOG_ERROR);
    listener.Start(L"APO[0]test", kEndpoint, changed.Get(), settings);
    ASSERT_TRUE(Logged("| Changed log level to TRACE #]"));
  }
  void TearDown() override {
    listener.Stop();
    DeleteKeys({GainKey(kEndpoint), GainKey(kOtherEndpoint)});
    Logger::Instance().SetLevel(LOG_ERROR);
  }

  ScopedRegistryValue level{HKEY_LOCAL_MACHINE, kSettingsKey, kLogLevelValue};
  ScopedRegistryValue blockVoice{HKEY_LOCAL_MACHINE, kSettingsKey, kBlockVoiceValue};
  UniqueHandle changed{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  EffectSettings settings;
  ConfigListener listener;
};

TEST_F(Listener, MicGainFollowsThisEndpointsSetting) {
  const struct {
    DWORD decibels;
    float gain;
    const char* printed;
  } cases[] = {{6, 1.9952623f, "Changed mic amp to 2.00"},
               {100, 31.622776f, "Changed mic amp to 31.62"},  // capped at 30 dB
               {0xFFFFFFFF, 31.622776f, nullptr},
               {0, 1.0f, "Changed mic amp to 1.00"}};
  ScopedRegistryValue gain(HKEY_LOCAL_MACHINE, GainKey(kEndpoint), kMicGainValue);
  for (const auto& c : cases) {
    ASSERT_TRUE(gain.SetDword(c.decibels));
    EXPECT_TRUE(PollUntil([&] { return settings.micGain.load() == c.gain; })) << c.decibels;
    // The listener stores the gain before it logs the change: wait for the line too.
    if (c.printed != nullptr) EXPECT_TRUE(Logged(c.printed)) << c.printed;
  }
  // A deleted value returns the gain to 1.
  ASSERT_TRUE(gain.SetDword(6));
  ASSERT_TRUE(PollUntil([&] { return settings.micGain.load() != 1.0f; }));
  gain.Delete();
  EXPECT_TRUE(PollUntil([&] { return settings.micGain.load() == 1.0f; }));
}

// The defaults need no change messages, and another endpoint's gain wakes the
// listener but changes nothing here.
TEST_F(Listener, DefaultsAndAnotherEndpointsGainChangeNothing) {
  EXPECT_FALSE(settings.blockVoice.load());
  EXPECT_EQ(std::string::npos, LogText().find("Changed filter block voice"));
  ScopedRegistryValue other(HKEY_LOCAL_MACHINE, GainKey(kOtherEndpoint), kMicGainValue);
  ASSERT_TRUE(other.SetDword(20));
  // Then a change of our own, to know the listener has looked since.
  ASSERT_TRUE(blockVoice.SetDword(1));
  ASSERT_TRUE(Logged("Changed filter block voice to on"));
  EXPECT_TRUE(settings.blockVoice.load());
  EXPECT_EQ(1.0f, settings.micGain.load());
  EXPECT_EQ(std::string::npos, LogText().find("Changed mic amp"));
  // Stored as text it cannot be read: block voice goes off again.
  ASSERT_TRUE(blockVoice.SetString(L"1"));
  EXPECT_TRUE(Logged("Changed filter block voice to off"));
  EXPECT_FALSE(settings.blockVoice.load());
}

TEST_F(Listener, LogLevelFollowsTheSetting) {
  ASSERT_TRUE(level.SetString(kLogLevels[LOG_WARNING].text));
  EXPECT_TRUE(PollUntil([] { return Logger::Instance().Level() == LOG_WARNING; }));
  EXPECT_TRUE(Logged("| Changed log level to WARNING #]"));
  level.Delete();
  EXPECT_TRUE(PollUntil([] { return Logger::Instance().Level() == LOG_ERROR; }));
  EXPECT_TRUE(Logged("| Changed log level to ERROR #]"));
}

}  // namespace
}  // namespace quillon::test
