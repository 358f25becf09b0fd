// A friendly name for the stand-in's endpoint, where Windows keeps endpoints'
// names (HKLM\...\MMDevices\Audio\Capture\{guid}\Properties), so that the
// board and quillon list show it as they show a real microphone's. The name
// is removed again when the object goes, with the endpoint's key if it made it.
#pragma once

#include <string>

namespace quillon::tools {

class EndpointName {
 public:
  // `endpoint` as the effect is given it ("{0.0.1.00000000}.{guid}" or "{guid}").
  EndpointName(const std::wstring& endpoint, const std::wstring& name);
  ~EndpointName();
  EndpointName(const EndpointName&) = delete;
  EndpointName& operator=(const EndpointName&) = delete;
  // False, with `error` saying why, when the name could not be written.
  bool Written(std::string& error) const;

 private:
  std::wstring key_;
  bool madeKey_ = false;
  long status_ = 0;
};

}  // namespace quillon::tools
