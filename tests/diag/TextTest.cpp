// The wide string operations, formatting and error descriptions.
#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "diag/WideString.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace quillon {
namespace {

std::wstring W(const WideString& s) { return std::wstring(s.Data(), static_cast<size_t>(s.Length())); }

TEST(WideStringTest, EmptyStringsOwnTheirTerminator) {
  WideString fromNull(static_cast<const wchar_t*>(nullptr));
  ASSERT_NE(nullptr, fromNull.Data());
  EXPECT_EQ(L'\0', fromNull.Data()[0]);
  EXPECT_EQ(0u, fromNull.Length());
  WideString formatted = Format(L"%s", L"");
  ASSERT_NE(nullptr, formatted.Data());
  EXPECT_EQ(0u, formatted.Length());
  EXPECT_EQ(0u, Format(nullptr).Length());
}

TEST(WideStringTest, CopyMoveAndAssign) {
  WideString a(L"alpha");
  WideString b = a;
  WideString c(std::move(a));
  EXPECT_EQ(L"alpha", W(b));
  EXPECT_EQ(L"alpha", W(c));
  b = L"beta";
  c = std::move(b);
  EXPECT_EQ(L"beta", W(c));
  WideString& alias = c;
  c = alias;  // assigning a string to itself keeps the text
  EXPECT_EQ(L"beta", W(c));
  EXPECT_EQ(L"alphabeta", W(Concat(WideString(L"alpha"), WideString(L"beta"))));
}

TEST(WideStringTest, Trim) {
  EXPECT_EQ(L"x", W(Trim(L"\t x\r\n")));
  EXPECT_EQ(L"a b", W(Trim(L"  a b  ")));
  EXPECT_EQ(L"", W(Trim(L"    ")));
  EXPECT_EQ(L"", W(Trim(L"")));
  EXPECT_EQ(L"\x00e9t\x00e9", W(Trim(L"\x0001\x00e9t\x00e9\x001f")));
}

struct SubstringCase {
  uint64_t from, to;
  const wchar_t* expected;
};

TEST(WideStringTest, Substring) {
  const WideString text(L"Quillon.log");
  const SubstringCase cases[] = {
      {8, WideString::npos, L"log"}, {0, 7, L"Quillon"}, {7, 0, L"Quillon"}, {0, 0, L""},
      {20, 30, L""},                 {3, 3, L""},        {10, 11, L"g"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, W(Substring(text, c.from, c.to))) << c.from << ".." << c.to;
}

TEST(WideStringTest, FindLast) {
  EXPECT_EQ(3u, FindLast(L"a.b.c", L"."));
  EXPECT_EQ(WideString::npos, FindLast(L"abc", L"."));
  EXPECT_EQ(0u, FindLast(L"abc", L"abc"));
  EXPECT_EQ(WideString::npos, FindLast(L"ab", L"abc"));
  EXPECT_EQ(4u, FindLast(L"abcabc", L"bc"));
}

TEST(WideStringTest, Split) {
  std::vector<WideString> pieces = Split(L"C:\\a\\\\b", L"\\");
  ASSERT_EQ(4u, pieces.size());
  EXPECT_EQ(L"C:", W(pieces[0]));
  EXPECT_EQ(L"a", W(pieces[1]));
  EXPECT_EQ(L"", W(pieces[2]));
  EXPECT_EQ(L"b", W(pieces[3]));
  EXPECT_EQ(1u, Split(L"none", L"\\").size());
  EXPECT_EQ(2u, Split(L"end\\", L"\\").size());
}

TEST(FormatTest, WindowsConventions) {
  EXPECT_EQ(L"Code=80070057: wide", W(Format(L"Code=%x: %s", 0x80070057u, L"wide")));
  EXPECT_EQ(L"[TRACE]", W(Format(L"[%-5s]", L"TRACE")));
  EXPECT_EQ(L"[INFO ]", W(Format(L"[%-5s]", L"INFO")));
  EXPECT_EQ(L"[WARNING]", W(Format(L"[%-5s]", L"WARNING")));
  EXPECT_EQ(L"PID=  42 48000", W(Format(L"PID=%4d %.0f", 42, 48000.0)));
  EXPECT_EQ(L"100% x", W(Format(L"%d%% %c", 100, L'x')));
  EXPECT_EQ(L"[  ab]", W(Format(L"[%4.2s]", L"abc")));
  EXPECT_EQ(L"narrow wide", W(Format(L"%hs %ls", "narrow", L"wide")));
  EXPECT_EQ(L"18446744073709551615 ff", W(Format(L"%llu %lx", 18446744073709551615ull, 255ul)));
  std::wstring longText(10000, L'z');
  EXPECT_EQ(longText + L"!", W(Format(L"%s!", longText.c_str())));
}

TEST(ErrorDescriptionTest, SystemTextWithoutLineEnd) {
  std::wstring text = GetErrorDescription(ERROR_FILE_NOT_FOUND);
  ASSERT_FALSE(text.empty());
  EXPECT_NE(L"No error description", text);
  EXPECT_NE(L'\n', text.back());
  EXPECT_NE(L'\r', text.back());
  EXPECT_NE(L' ', text.back());
  EXPECT_NE(L"No error description", GetErrorDescription(static_cast<uint32_t>(E_INVALIDARG)));
  EXPECT_EQ(L"No error description", GetErrorDescription(0x2FFFFFFFu));
}

TEST(ErrorDescriptionTest, Win32CodesAsHresult) {
  EXPECT_EQ(0, HresultFromWin32(0));
  EXPECT_EQ(static_cast<int32_t>(0x80070002), HresultFromWin32(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(static_cast<int32_t>(0x80070005), HresultFromWin32(ERROR_ACCESS_DENIED));
  EXPECT_EQ(static_cast<int32_t>(0x8007FFFF), HresultFromWin32(0x1FFFF));
  EXPECT_EQ(static_cast<int32_t>(0x80004005), HresultFromWin32(static_cast<int32_t>(0x80004005)));
}

TEST(LogLevelTest, ParseRegistryText) {
  struct {
    const wchar_t* text;
    int32_t level;
  } cases[] = {{L"trace", 0}, {L"DEBUG", 1}, {L"info", 2},  {L"WARN", 3},      {L"warning", 2},
               {L"error", 4}, {L"NoLog", 5}, {L"", 2},      {L"verbose", 2},   {nullptr, 2}};
  for (const auto& c : cases) EXPECT_EQ(c.level, ParseLogLevel(c.text)) << (c.text ? c.text : L"(null)");
  EXPECT_STREQ(L"WARNING", kLogLevelLabels[3]);
}

}  // namespace
}  // namespace quillon
