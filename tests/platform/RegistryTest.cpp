// Registry access by full path, against real values that the tests write and remove.
#include "platform/Registry.h"
#include "support/RegistryValue.h"

#include <gtest/gtest.h>

namespace quillon {
namespace {

struct ParseCase {
  const wchar_t* text;
  HKEY root;
  const wchar_t* rootName;
  const wchar_t* subKey;
  const wchar_t* valueName;
};

TEST(RegistryPathTest, Parse) {
  const ParseCase cases[] = {
      {L"HKLM\\SOFTWARE\\Marrowin\\Quillon\\LogLevel", HKEY_LOCAL_MACHINE, L"HKLM", L"SOFTWARE\\Marrowin\\Quillon",
       L"LogLevel"},
      {L"hklm\\SOFTWARE\\Marrowin\\Quillon\\LogLevel", HKEY_LOCAL_MACHINE, L"hklm", L"SOFTWARE\\Marrowin\\Quillon",
       L"LogLevel"},
      {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Marrowin\\Quillon\\", HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE",
       L"SOFTWARE\\Marrowin\\Quillon\\", L""},
      {L"hkey_classes_root\\A\\B", HKEY_CLASSES_ROOT, L"hkey_classes_root", L"A", L"B"},
      {L"HKU\\A\\B", HKEY_USERS, L"HKU", L"A", L"B"},
      {L"HKCC\\A\\B", HKEY_CURRENT_CONFIG, L"HKCC", L"A", L"B"},
      {L"HKLM\\Foo", HKEY_LOCAL_MACHINE, L"HKLM", L"", L""},
      {L"HKEY_FOO\\A\\B", nullptr, L"", L"A", L"B"},
      {L"Software\\A", nullptr, L"", L"", L""},
      {L"\\Software\\A", nullptr, L"", L"", L""},
      {L"HKLM", nullptr, L"", L"", L""},
      {L"HKCU\\A\\B\x1C" L"C\\D", HKEY_CURRENT_USER, L"HKCU", L"A\\B", L"C\\D"},
  };
  for (const auto& c : cases) {
    RegistryPath p = ParseRegistryPath(c.text);
    EXPECT_EQ(c.root, p.root) << c.text;
    EXPECT_EQ(c.rootName, p.rootName) << c.text;
    EXPECT_EQ(c.subKey, p.subKey) << c.text;
    EXPECT_EQ(c.valueName, p.valueName) << c.text;
  }
}

constexpr const wchar_t* kTestKey = L"Software\\QuillonTests\\Registry";
const std::wstring kTestPath = L"HKCU\\Software\\QuillonTests\\Registry\\";

class RegistryReadTest : public ::testing::Test {
 protected:
  void TearDown() override { RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\QuillonTests"); }
};

TEST_F(RegistryReadTest, Dword) {
  test::ScopedRegistryValue value(HKEY_CURRENT_USER, kTestKey, L"Number");
  ASSERT_TRUE(value.SetDword(0xFFFFFFFF));
  uint32_t read = 0;
  RegResult r = ReadRegistryDword(kTestPath + L"Number", read);
  EXPECT_TRUE(r.Ok());
  EXPECT_EQ(0xFFFFFFFFu, read);
}

struct WrongTypeCase {
  const char* name;
  DWORD type;
  std::vector<BYTE> data;
};

TEST_F(RegistryReadTest, DwordOfWrongTypeIsMismatchAndLeavesOutput) {
  const WrongTypeCase cases[] = {
      {"text", REG_SZ, {'1', 0, 0, 0}},
      {"four-byte binary", REG_BINARY, {1, 0, 0, 0}},
      {"eight-byte binary", REG_BINARY, {1, 2, 3, 4, 5, 6, 7, 8}},
  };
  for (const auto& c : cases) {
    test::ScopedRegistryValue value(HKEY_CURRENT_USER, kTestKey, L"Number");
    ASSERT_TRUE(value.Set(c.type, c.data.data(), static_cast<DWORD>(c.data.size())));
    uint32_t read = 77;
    RegResult r = ReadRegistryDword(kTestPath + L"Number", read);
    EXPECT_EQ(static_cast<uint32_t>(ERROR_DATATYPE_MISMATCH), r.error) << c.name;
    EXPECT_EQ(RegStep::kDwordType, r.step) << c.name;
    EXPECT_EQ(77u, read) << c.name;
  }
}

TEST_F(RegistryReadTest, MissingValuesAndKeysAndRoots) {
  uint32_t number = 5;
  std::wstring text = L"kept";
  RegResult r = ReadRegistryDword(kTestPath + L"Absent", number);
  EXPECT_EQ(static_cast<uint32_t>(ERROR_FILE_NOT_FOUND), r.error);
  r = ReadRegistryString(L"HKEY_FOO\\A\\B", text);
  EXPECT_EQ(static_cast<uint32_t>(ERROR_FILE_NOT_FOUND), r.error);
  test::ScopedRegistryValue other(HKEY_CURRENT_USER, kTestKey, L"Other");
  ASSERT_TRUE(other.SetDword(1));
  r = ReadRegistryString(kTestPath + L"Absent", text);
  EXPECT_EQ(static_cast<uint32_t>(ERROR_FILE_NOT_FOUND), r.error);
  EXPECT_EQ(5u, number);
  EXPECT_EQ(L"kept", text);
}

TEST_F(RegistryReadTest, TextsShortAndLong) {
  // Up to 255 characters fit the first read; longer texts are read again at their size.
  for (size_t length : {0, 255, 256, 5000}) {
    std::wstring expected;
    for (size_t i = 0; i < length; ++i) expected += static_cast<wchar_t>(L'a' + i % 26);
    test::ScopedRegistryValue value(HKEY_CURRENT_USER, kTestKey, L"Text");
    ASSERT_TRUE(value.SetString(expected));
    std::wstring read;
    RegResult r = ReadRegistryString(kTestPath + L"Text", read);
    EXPECT_TRUE(r.Ok()) << length;
    EXPECT_EQ(expected, read) << length;
  }
}

TEST_F(RegistryReadTest, ExpandableTextIsExpanded) {
  test::ScopedRegistryValue value(HKEY_CURRENT_USER, kTestKey, L"Folder");
  ASSERT_TRUE(value.SetString(L"%ProgramData%\\Marrowin\\Brisvale", REG_EXPAND_SZ));
  wchar_t programData[MAX_PATH] = {};
  ASSERT_GT(GetEnvironmentVariableW(L"ProgramData", programData, MAX_PATH), 0u);
  std::wstring read;
  EXPECT_TRUE(ReadRegistryString(kTestPath + L"Folder", read).Ok());
  EXPECT_EQ(std::wstring(programData) + L"\\Marrowin\\Brisvale", read);
}

TEST_F(RegistryReadTest, TextOfWrongType) {
  test::ScopedRegistryValue value(HKEY_CURRENT_USER, kTestKey, L"Number");
  ASSERT_TRUE(value.SetDword(3));
  std::wstring read = L"kept";
  RegResult r = ReadRegistryString(kTestPath + L"Number", read);
  EXPECT_EQ(static_cast<uint32_t>(ERROR_DATATYPE_MISMATCH), r.error);
  EXPECT_EQ(L"kept", read);
}

TEST_F(RegistryReadTest, OpenCreatesEveryMissingLevel) {
  const std::wstring deep = L"HKEY_CURRENT_USER\\Software\\QuillonTests\\Registry\\a\\b\\c\\";
  ScopedRegKey key;
  RegResult r = OpenRegistryKey(ParseRegistryPath(deep), KEY_QUERY_VALUE, false, key);
  EXPECT_EQ(static_cast<uint32_t>(ERROR_FILE_NOT_FOUND), r.error);
  EXPECT_EQ(nullptr, key.Get());

  r = OpenRegistryKey(ParseRegistryPath(deep), KEY_NOTIFY | KEY_SET_VALUE, true, key);
  ASSERT_TRUE(r.Ok());
  // The key was opened with the asked access: it can be written through.
  DWORD one = 1;
  EXPECT_EQ(ERROR_SUCCESS, RegSetValueExW(key.Get(), L"Written", 0, REG_DWORD, reinterpret_cast<BYTE*>(&one), 4));
  uint32_t read = 0;
  EXPECT_TRUE(ReadRegistryDword(deep + L"Written", read).Ok());
  EXPECT_EQ(1u, read);
}

}  // namespace
}  // namespace quillon
