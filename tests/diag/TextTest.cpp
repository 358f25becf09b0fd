// Formatting with the Windows conventions, error descriptions and log level names.
#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "diag/WideString.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace quillon {
namespace {

std::wstring W(const WideString& s) { return std::wstring(s.Data(), static_cast<size_t>(s.Length())); }

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
