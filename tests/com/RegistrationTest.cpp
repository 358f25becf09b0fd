// Registration with the audio engine, through Wine's regsvr32 as an installer
// runs it, read back value by value.
#include "support/ChildProcess.h"
#include "support/QuillonDll.h"

#include <gtest/gtest.h>

#include <vector>

namespace quillon::test {
namespace {

const std::wstring kParent = L"AudioEngine\\AudioProcessingObjects";
const std::wstring kKey = kParent + L"\\" + kQuillonClsidText;

struct Value {
  DWORD type = 0;
  std::vector<BYTE> data;
};

bool Read(const std::wstring& key, const wchar_t* name, Value& value) {
  DWORD size = 0;
  if (RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, &value.type, nullptr, &size) !=
      ERROR_SUCCESS) {
    return false;
  }
  value.data.resize(size);
  return RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, &value.type,
                      value.data.data(), &size) == ERROR_SUCCESS;
}

bool KeyExists(const std::wstring& key) {
  HKEY h = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS) return false;
  RegCloseKey(h);
  return true;
}

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
  for (const auto& n : numbers) {
    Value v;
    ASSERT_TRUE(Read(kKey, n.name, v)) << n.name;
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), v.type) << n.name;
    ASSERT_EQ(4u, v.data.size()) << n.name;
    EXPECT_EQ(n.value, *reinterpret_cast<DWORD*>(v.data.data())) << n.name;
  }
  const struct {
    const wchar_t* name;
    std::wstring text;
  } texts[] = {{L"FriendlyName", L"Quillon"},
               {L"Copyright", L"Copyright (c) Marrowin"},
               {L"APOInterface0", L"{FD7F2B29-24D0-4B5C-B177-592C39F9CA10}"}};
  for (const auto& t : texts) {
    Value v;
    ASSERT_TRUE(Read(kKey, t.name, v)) << t.name;
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), v.type) << t.name;
    ASSERT_EQ((t.text.size() + 1) * sizeof(wchar_t), v.data.size()) << t.name;
    EXPECT_EQ(t.text, reinterpret_cast<const wchar_t*>(v.data.data())) << t.name;
  }
  Value iid;
  ASSERT_TRUE(Read(kKey, L"APOInterface0", iid));
  EXPECT_EQ(78u, iid.data.size());
}

class Registration : public ::testing::Test {
 protected:
  void TearDown() override { RegDeleteTreeW(HKEY_CLASSES_ROOT, kKey.c_str()); }
};

TEST_F(Registration, Regsvr32RegistersAndUnregistersTwice) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, Regsvr32(L"/s")) << "round " << round;
    ExpectRegistration();
  }
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, Regsvr32(L"/u /s")) << "round " << round;
    EXPECT_FALSE(KeyExists(kKey));
    EXPECT_TRUE(KeyExists(kParent)) << "the parent key stays";
  }
}

TEST_F(Registration, StaleValuesAreReplacedAndSubkeysSurvive) {
  QuillonDll dll;
  ASSERT_TRUE(dll.Loaded());
  // A stale registration with an extra value is deleted and written anew.
  RegSetKeyValueW(HKEY_CLASSES_ROOT, kKey.c_str(), L"Stale", REG_SZ, L"x", 4);
  ASSERT_EQ(S_OK, dll.RegisterServer());
  Value stale;
  EXPECT_FALSE(Read(kKey, L"Stale", stale));
  ExpectRegistration();
  // A key with a subkey cannot be deleted: the values are written over it.
  RegSetKeyValueW(HKEY_CLASSES_ROOT, (kKey + L"\\Sub").c_str(), L"Kept", REG_SZ, L"y", 4);
  ASSERT_EQ(S_OK, dll.RegisterServer());
  ExpectRegistration();
  EXPECT_TRUE(KeyExists(kKey + L"\\Sub"));
}

TEST_F(Registration, UnregisterWithoutParentSucceeds) {
  QuillonDll dll;
  ASSERT_TRUE(dll.Loaded());
  RegDeleteTreeW(HKEY_CLASSES_ROOT, L"AudioEngine");
  EXPECT_EQ(S_OK, dll.UnregisterServer());
}

}  // namespace
}  // namespace quillon::test
