// Error descriptions: the system's text, trimmed, or a fixed text when it has none.
#include "diag/ErrorDescription.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace quillon {
namespace {

TEST(ErrorDescriptionTest, SystemTextWithoutLineEnd) {
  std::wstring text = GetErrorDescription(ERROR_FILE_NOT_FOUND);
  ASSERT_FALSE(text.empty());
  EXPECT_NE(L"No error description", text);
  EXPECT_EQ(std::wstring::npos, std::wstring(L"\r\n ").find(text.back())) << "ends in a line end or a space";
  EXPECT_NE(L"No error description", GetErrorDescription(static_cast<uint32_t>(E_INVALIDARG)));
  EXPECT_EQ(L"No error description", GetErrorDescription(0x2FFFFFFFu));
}

}  // namespace
}  // namespace quillon
