// Whether the audio engine's account, LOCAL SERVICE, may load a file, for
// access lists in SDDL. Wine keeps no access list on a file, so there is no
// file to set one on: the evaluation is given the security descriptor.
#include "system/ServiceAccess.h"

#include <windows.h>
#include <sddl.h>

#include <gtest/gtest.h>

namespace quillon::test {
namespace {

struct Acl {
  const char* name;
  const wchar_t* sddl;
  bool mayRun;
  const char* why;  // a part of the reason given when it may not
};

void PrintTo(const Acl& acl, std::ostream* out) { *out << acl.name; }

class LocalServiceAccess : public ::testing::TestWithParam<Acl> {};

TEST_P(LocalServiceAccess, FollowsTheAccessList) {
  const Acl& c = GetParam();
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(c.sddl, SDDL_REVISION_1, &descriptor, nullptr));
  std::string why;
  EXPECT_EQ(c.mayRun, system::LocalServiceMayRun(descriptor, why)) << why;
  LocalFree(descriptor);
  if (!c.mayRun) EXPECT_NE(std::string::npos, why.find(c.why)) << why;
}

constexpr const char* kDenies = "denies LOCAL SERVICE";
constexpr const char* kLacks = "does not let LOCAL SERVICE";

INSTANTIATE_TEST_SUITE_P(Table, LocalServiceAccess, ::testing::Values(
    Acl{"NoAccessList", L"O:BA", true, ""},
    Acl{"EmptyAccessList", L"D:", false, kLacks},
    Acl{"Everyone", L"D:(A;;FA;;;WD)", true, ""},
    Acl{"UsersReadAndExecute", L"D:(A;;FRFX;;;BU)", true, ""},
    Acl{"AdministratorsOnly", L"D:(A;;FA;;;BA)(A;;FA;;;SY)", false, kLacks},
    Acl{"DeniedBeforeEveryone", L"D:(D;;FA;;;LS)(A;;FA;;;WD)", false, kDenies},
    Acl{"ExecuteDeniedToServices", L"D:(D;;FX;;;SU)(A;;FA;;;WD)", false, kDenies},
    Acl{"AllowedBeforeTheDenial", L"D:(A;;FA;;;WD)(D;;FA;;;LS)", true, ""},
    Acl{"ReadWithoutExecute", L"D:(A;;GR;;;LS)", false, kLacks},
    Acl{"GenericReadAndExecute", L"D:(A;;GRGX;;;LS)", true, ""},
    Acl{"OnlyForWhatIsInside", L"D:(A;OICIIO;FA;;;WD)", false, kLacks},
    Acl{"AnotherAccount", L"D:(A;;FA;;;NS)", false, kLacks}),
    [](const ::testing::TestParamInfo<Acl>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillon::test
