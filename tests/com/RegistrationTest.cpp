// Registration with the audio engine, through Wine's regsvr32 as an installer
// runs it, read back value by value from the machine's classes.
#include "support/ChildProcess.h"
#include "support/EndpointFixtures.h"
#include "support/QuillonDll.h"
#include "support/RegistryValue.h"

namespace quillon::test {
namespace {

const std::wstring kParent = L"SOFTWARE\\Classes\\AudioEngine\\AudioProcessingObjects";

long Regsvr32(const std::wstring& flags) {
  ChildProcess regsvr32(L"C:\\windows\\system32\\regsvr32.exe", flags + L" \"" + QuillonDllPath() + L"\"");
  return regsvr32.Wait(60000);
}

void ExpectRegistration() {
  const struct {
    const wchar_t* name;
    DWORD value;
  } numbers[] = {{L"MajorVersion", 1},        {L"MinorVersion", 8},         {L"Flags", 14},
                 {L"MinInputConnections", 1}, {L"MaxInputConnections", 1},  {L"MinOutputConnections", 1},
                 {L"MaxOutputConnections", 1}, {L"MaxInstances", 0xFFFFFFFF}, {L"NumAPOInterfaces", 1}};
  for (const auto& n : numbers) EXPECT_EQ(n.value, RegDword(kQuillonEngineKey, n.name)) << n.name;
  const struct {
    const wchar_t* name;
    std::wstring text;
  } texts[] = {{L"FriendlyName", L"Quillon"},
               {L"Copyright", L"Copyright (c) Marrowin"},
               {L"APOInterface0", L"{FD7F2B29-24D0-4B5C-B177-592C39F9CA10}"}};
  for (const auto& t : texts) {
    wchar_t text[64] = {};
    DWORD size = sizeof(text);
    EXPECT_EQ(ERROR_SUCCESS, RegGetValueW(HKEY_LOCAL_MACHINE, kQuillonEngineKey.c_str(), t.name,
                                          RRF_RT_REG_SZ | RRF_NOEXPAND, nullptr, text, &size)) << t.name;
    EXPECT_EQ(t.text, text) << t.name;
    EXPECT_EQ((t.text.size() + 1) * sizeof(wchar_t), size) << t.name << ": the text and its terminator, nothing more";
  }
}

class Registration : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dll.Loaded()); }
  void TearDown() override { DeleteKeys({kQuillonEngineKey}); }
  QuillonDll dll;
};

TEST_F(Registration, Regsvr32RegistersAndUnregistersTwice) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, Regsvr32(L"/s")) << "round " << round;
    ExpectRegistration();
  }
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, Regsvr32(L"/u /s")) << "round " << round;
    EXPECT_EQ("", Export(kQuillonEngineKey));
    EXPECT_NE("", Export(kParent)) << "the parent key stays";
  }
}

TEST_F(Registration, StaleValuesAreReplacedAndSubkeysSurvive) {
  // A stale registration with an extra value is deleted and written anew.
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, kQuillonEngineKey.c_str(), L"Stale", REG_SZ, L"x", 4);
  ASSERT_EQ(S_OK, dll.RegisterServer());
  EXPECT_FALSE(RegHas(kQuillonEngineKey, L"Stale"));
  ExpectRegistration();
  // A key with a subkey cannot be deleted: the values are written over it.
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, (kQuillonEngineKey + L"\\Sub").c_str(), L"Kept", REG_SZ, L"y", 4);
  ASSERT_EQ(S_OK, dll.RegisterServer());
  ExpectRegistration();
  EXPECT_NE("", Export(kQuillonEngineKey + L"\\Sub"));
}

TEST_F(Registration, UnregisterWithoutParentSucceeds) {
  DeleteKeys({L"SOFTWARE\\Classes\\AudioEngine"});
  EXPECT_EQ(S_OK, dll.UnregisterServer());
}

}  // namespace
}  // namespace quillon::test
