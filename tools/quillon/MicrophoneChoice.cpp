#include "quillon/MicrophoneChoice.h"

#include "common/ToolSupport.h"

namespace quillon::cli {

using system::Endpoint;
using system::Flow;
using system::Names;
using system::ReadEndpoints;
using tools::Utf8;

// The one capture endpoint `text` names; playback endpoints are named in the refusal.
const Endpoint* ResolveMicrophone(const std::vector<Endpoint>& captures, const std::wstring& text, std::string& error) {
  for (bool exact : {true, false}) {
    std::vector<const Endpoint*> found;
    for (const Endpoint& endpoint : captures) {
      if (Names(endpoint, text, exact)) found.push_back(&endpoint);
    }
    if (found.size() == 1) return found.front();
    if (found.size() > 1) {
      error = "several microphones match \"" + Utf8(text) + "\"; name one by its GUID:";
      for (const Endpoint* endpoint : found) error += "\n  " + endpoint->Describe();
      return nullptr;
    }
  }
  for (const Endpoint& endpoint : ReadEndpoints(Flow::kRender)) {
    if (Names(endpoint, text, false)) {
      error = endpoint.Describe() + " is a playback endpoint; Quillon goes on microphones only";
      return nullptr;
    }
  }
  error = "no microphone matches \"" + Utf8(text) + "\"" + (captures.empty() ? "; Windows shows no microphones" : ":");
  for (const Endpoint& endpoint : captures) error += "\n  " + endpoint.Describe();
  return nullptr;
}

}  // namespace quillon::cli
