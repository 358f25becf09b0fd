#include "system/Endpoints.h"

#include "common/ToolSupport.h"

#include <cwctype>

namespace quillon::system {

using tools::Utf8;

namespace {

constexpr wchar_t kAudioKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\";
constexpr wchar_t kFriendlyName[] = L"{a45c254e-df1c-4efd-8020-67d146a850e0},14";

std::wstring Braced(const std::wstring& text) {
  return !text.empty() && text.front() != L'{' ? L"{" + text + L"}" : text;
}

}  // namespace

const std::vector<FxValueName>& FxValueNames() {
  static const std::vector<FxValueName> names = {
      {fx::kPreMix, "pre-mix effect", false},
      {fx::kPostMix, "post-mix effect", false},
      {fx::kStream, "stream effect", false},
      {fx::kMode, "mode effect", false},
      {fx::kEndpoint, "endpoint effect", false},
      {L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},13", "composite stream effects", true},
      {L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14", "composite mode effects", true},
      {L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},15", "composite endpoint effects", true},
      {fx::kStreamModes, "stream processing modes", false},
      {L"{d3993a3f-99c2-4402-b5ec-a92a0367664b},6", "mode processing modes", false},
      {L"{d3993a3f-99c2-4402-b5ec-a92a0367664b},7", "endpoint processing modes", false},
      {fx::kEffectsOff, "effects turned off", false},
  };
  return names;
}

std::wstring Endpoint::Key() const {
  return kAudioKey + std::wstring(flow == Flow::kCapture ? L"Capture\\" : L"Render\\") + guid;
}

std::wstring Lowercase(std::wstring text) {
  for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
  return text;
}

std::wstring GuidOf(const std::wstring& endpointId) {
  const size_t open = endpointId.rfind(L'{');
  return open == std::wstring::npos ? endpointId : endpointId.substr(open);
}

std::wstring FriendlyName(Flow flow, const std::wstring& guid) {
  const Endpoint endpoint{flow, guid};
  const std::optional<RegValue> name = ReadValue(endpoint.Key() + L"\\Properties", kFriendlyName);
  return name ? name->AsText().value_or(L"") : L"";
}

std::wstring Endpoint::FxKey() const { return Key() + L"\\FxProperties"; }

std::wstring Endpoint::Id() const {
  return (flow == Flow::kCapture ? L"{0.0.1.00000000}." : L"{0.0.0.00000000}.") + guid;
}

const RegValue* Endpoint::Fx(const wchar_t* valueName) const {
  const auto found = fx.find(valueName);
  return found == fx.end() ? nullptr : &found->second;
}

std::string Endpoint::Describe() const { return name.empty() ? Utf8(guid) : Utf8(name) + " " + Utf8(guid); }

std::vector<Endpoint> ReadEndpoints(Flow flow) {
  std::vector<Endpoint> endpoints;
  const std::wstring parent = kAudioKey + std::wstring(flow == Flow::kCapture ? L"Capture" : L"Render");
  for (const std::wstring& guid : SubKeys(parent)) {
    Endpoint endpoint;
    endpoint.flow = flow;
    endpoint.guid = guid;
    const std::optional<RegValue> state = ReadValue(endpoint.Key(), L"DeviceState");
    if (state && state->type == REG_DWORD && state->data.size() == 4) {
      endpoint.state = *reinterpret_cast<const DWORD*>(state->data.data());
    }
    endpoint.name = FriendlyName(flow, guid);
    endpoint.hasFxKey = KeyExists(endpoint.FxKey());
    for (const FxValueName& value : FxValueNames()) {
      if (std::optional<RegValue> found = ReadValue(endpoint.FxKey(), value.name)) {
        endpoint.fx[value.name] = std::move(*found);
      }
    }
    endpoints.push_back(std::move(endpoint));
  }
  return endpoints;
}

std::string StateText(DWORD state) {
  switch (state & 0xF) {
    case 1: return "active";
    case 2: return "disabled";
    case 4: return "not present";
    case 8: return "unplugged";
    default: return "state " + std::to_string(state);
  }
}

bool Names(const Endpoint& endpoint, const std::wstring& text, bool exact) {
  const std::wstring wanted = Lowercase(text);
  if (wanted.empty()) return false;
  if (wanted == Lowercase(endpoint.Id()) || Braced(wanted) == Lowercase(endpoint.guid) || wanted == Lowercase(endpoint.name)) {
    return true;
  }
  return !exact && !endpoint.name.empty() && Lowercase(endpoint.name).find(wanted) != std::wstring::npos;
}

bool SameClassId(const std::wstring& a, const std::wstring& b) { return Lowercase(Braced(a)) == Lowercase(Braced(b)); }

}  // namespace quillon::system
