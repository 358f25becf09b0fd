// What Windows keeps about each audio endpoint under
// HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio: its state,
// its friendly name, and the effect values in its FxProperties key.
#pragma once

#include "effect/ClassId.h"
#include "system/RegistryEdit.h"

#include <map>
#include <string>
#include <vector>

namespace quillon::system {

// FxProperties values, by their names.
namespace fx {
constexpr wchar_t kPreMix[] = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},1";
constexpr wchar_t kPostMix[] = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},2";
constexpr wchar_t kStream[] = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5";
constexpr wchar_t kMode[] = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6";
constexpr wchar_t kEndpoint[] = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},7";
constexpr wchar_t kStreamModes[] = L"{d3993a3f-99c2-4402-b5ec-a92a0367664b},5";
constexpr wchar_t kEffectsOff[] = L"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5";
constexpr wchar_t kDefaultMode[] = L"{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}";
}  // namespace fx

struct FxValueName {
  const wchar_t* name;
  const char* label;   // as `quillon mics` shows it
  bool composite;      // a list of effects whose order of processing is unknown
};
// Every FxProperties value that attach backs up, in the order shown.
const std::vector<FxValueName>& FxValueNames();

enum class Flow { kCapture, kRender };

struct Endpoint {
  Flow flow = Flow::kCapture;
  std::wstring guid;   // the endpoint's key name, "{...}", spelt as Windows has it
  std::wstring name;   // friendly name, or ""
  DWORD state = 0;     // DEVICE_STATE_*: 1 active, 2 disabled, 4 not present, 8 unplugged
  bool hasFxKey = false;
  std::map<std::wstring, RegValue> fx;  // the values of FxValueNames() it has

  std::wstring Key() const;    // below HKLM
  std::wstring FxKey() const;  // Key() + "\FxProperties"
  std::wstring Id() const;     // "{0.0.1.00000000}.{...}" (capture) or "{0.0.0.00000000}.{...}"
  const RegValue* Fx(const wchar_t* name) const;
  // "Microphone (USB Audio) {guid}", or the GUID alone.
  std::string Describe() const;
};

std::vector<Endpoint> ReadEndpoints(Flow flow);
std::string StateText(DWORD state);

// True when `text` names the endpoint: its id or GUID (braces optional), or
// its friendly name, ignoring case; `exact` false also accepts a part of the name.
bool Names(const Endpoint& endpoint, const std::wstring& text, bool exact);

// The endpoint's friendly name, or "".
std::wstring FriendlyName(Flow flow, const std::wstring& guid);
// The "{guid}" part of an endpoint id ("{0.0.1.00000000}.{guid}"); a GUID stays as it is.
std::wstring GuidOf(const std::wstring& endpointId);
std::wstring Lowercase(std::wstring text);

// True when two class id texts are the same class.
bool SameClassId(const std::wstring& a, const std::wstring& b);

}  // namespace quillon::system
