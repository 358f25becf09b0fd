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
      {L"HKLM\\SOFTWARE\\Maker\\Product\\Level", HKEY_LOCAL_MACHINE, L"HKLM", L"SOFTWARE\\Maker\\Product", L"Level"},
      {L"hklm\\SOFTWARE\\Maker\\Product\\Level", HKEY_LOCAL_MACHINE, L"hklm", L"SOFTWARE\\Maker\\Product", L"Level"},
      {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker\\Product\\", HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE",
       L"SOFTWARE\\Maker\\Product\\", L""},
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

std::vector<BYTE> Text(const std::wstring& text) {
  const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
  return std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t));
}

std::wstring Letters(size_t length) {
  std::wstring text;
  for (size_t i = 0; i < length; ++i) text += static_cast<wchar_t>(L'a' + i % 26);
  return text;
}

// A value as written (none with REG_NONE), read as a number and as a text
// through `path`. A read that fails leaves its output as it was.
struct ReadCase {
  const char* name;
  DWORD type;
  std::vector<BYTE> data;
  uint32_t numberError, number;
  uint32_t textError;
  std::wstring text;
  std::wstring path = kTestPath + L"Value";
};

class RegistryRead : public RegistryReadTest, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(RegistryRead, NumberAndText) {
  const ReadCase& c = GetParam();
  test::ScopedRegistryValue other(HKEY_CURRENT_USER, kTestKey, L"Other"), value(HKEY_CURRENT_USER, kTestKey, L"Value");
  ASSERT_TRUE(other.SetDword(1));  // the key is there, whether the value is or not
  if (c.type != REG_NONE) ASSERT_TRUE(value.Set(c.type, c.data.data(), static_cast<DWORD>(c.data.size())));
  ASSERT_TRUE(SetEnvironmentVariableW(L"QUILLON_TEST_FOLDER", L"D:\\Shared"));
  uint32_t number = 77;
  std::wstring text = L"kept";
  EXPECT_EQ(c.numberError, ReadRegistryDword(c.path, number).error);
  EXPECT_EQ(c.numberError == ERROR_SUCCESS ? c.number : 77u, number);
  EXPECT_EQ(c.textError, ReadRegistryString(c.path, text).error);
  EXPECT_EQ(c.textError == ERROR_SUCCESS ? c.text : L"kept", text);
}

constexpr uint32_t kMismatch = ERROR_DATATYPE_MISMATCH, kAbsent = ERROR_FILE_NOT_FOUND;
const ReadCase kReadCases[] = {
    {"Number", REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, 0, 0xFFFFFFFF, kMismatch, L""},
    {"NumberAsText", REG_SZ, Text(L"1"), kMismatch, 0, 0, L"1"},
    {"FourByteBinary", REG_BINARY, {1, 0, 0, 0}, kMismatch, 0, kMismatch, L""},
    {"EightByteBinary", REG_BINARY, {1, 2, 3, 4, 5, 6, 7, 8}, kMismatch, 0, kMismatch, L""},
    {"Absent", REG_NONE, {}, kAbsent, 0, kAbsent, L""},
    {"UnknownRoot", REG_NONE, {}, kAbsent, 0, kAbsent, L"", L"HKEY_FOO\\A\\B"},
    // Up to 255 characters fit the first read; longer texts are read again at their size.
    {"EmptyText", REG_SZ, Text(L""), kMismatch, 0, 0, L""},
    {"Text255", REG_SZ, Text(Letters(255)), kMismatch, 0, 0, Letters(255)},
    {"Text256", REG_SZ, Text(Letters(256)), kMismatch, 0, 0, Letters(256)},
    {"Text5000", REG_SZ, Text(Letters(5000)), kMismatch, 0, 0, Letters(5000)},
    {"ExpandableText", REG_EXPAND_SZ, Text(L"%QUILLON_TEST_FOLDER%\\Logs"), kMismatch, 0, 0, L"D:\\Shared\\Logs"},
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistryRead, ::testing::ValuesIn(kReadCases),
                         [](const auto& info) { return std::string(info.param.name); });

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
