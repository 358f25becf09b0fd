#include "system/Microphones.h"

#include "common/ToolSupport.h"
#include "platform/MappedView.h"
#include "player/PlayerClient.h"
#include "system/Endpoints.h"
#include "transfer/SharedLayout.h"
#include "transfer/WinUtils.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace quillon::system {

using tools::Utf8;

namespace {

bool ReadFormat(int slot, UNCOMPRESSEDAUDIOFORMAT& format) {
  const std::wstring name = WinUtils::PerInstanceName(kTransferMappingPrefix, slot);
  MappedView view;
  if (!view.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str())), sizeof(TransferBlock))) {
    return false;
  }
  std::memcpy(&format, &reinterpret_cast<const TransferBlock*>(view.Get())->format, sizeof(format));
  return true;
}

}  // namespace

std::wstring PlayingEventName(int slot) { return L"Global\\QuillonPlaying1.8.0_" + std::to_wstring(slot); }

UniqueHandle HoldPlayingEvent(int slot) {
  return UniqueHandle(CreateEventExW(WinUtils::GetNullDaclSecurityAttributes(), PlayingEventName(slot).c_str(),
                                     CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
}

std::wstring FriendlyName(const std::wstring& endpointId) { return FriendlyName(Flow::kCapture, GuidOf(endpointId)); }

std::vector<Microphone> RunningMicrophones() {
  std::vector<Microphone> mics;
  for (const player::RegisterEntry& entry : player::ReadRegister()) {
    if (!entry.inUse) continue;
    Microphone mic;
    mic.endpointId = entry.endpoint;
    mic.name = FriendlyName(entry.endpoint);
    mic.slot = entry.slot;
    ReadFormat(entry.slot, mic.format);
    mic.playing = static_cast<bool>(UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, PlayingEventName(entry.slot).c_str())));
    mics.push_back(std::move(mic));
  }
  return mics;
}

std::vector<Microphone> KnownMicrophones() {
  std::vector<Microphone> mics = RunningMicrophones();
  for (const Endpoint& endpoint : ReadEndpoints(Flow::kCapture)) {
    const bool running = std::any_of(mics.begin(), mics.end(), [&](const Microphone& m) {
      return Lowercase(GuidOf(m.endpointId)) == Lowercase(endpoint.guid);
    });
    // The effect knows its endpoint by the GUID alone (PKEY_AudioEndpoint_GUID),
    // and keys its settings by that text.
    if (!running) mics.push_back({endpoint.guid, endpoint.name});
  }
  return mics;
}

std::string Describe(const Microphone& mic) {
  return mic.name.empty() ? Utf8(mic.endpointId) : Utf8(mic.name) + " " + Utf8(mic.endpointId);
}

std::string DescribeFormat(const UNCOMPRESSEDAUDIOFORMAT& f) {
  return std::to_string(std::lround(f.fFramesPerSecond)) + " Hz, " + std::to_string(f.dwSamplesPerFrame) +
         (f.dwSamplesPerFrame == 1 ? " channel" : " channels");
}

bool Choose(const std::vector<Microphone>& candidates, const std::wstring& text, Microphone& chosen,
            std::string& error) {
  std::vector<const Microphone*> exact, partial;
  const std::wstring wanted = Lowercase(text);
  std::wstring wantedGuid = wanted;
  if (!wantedGuid.empty() && wantedGuid.front() != L'{') wantedGuid = L"{" + wantedGuid + L"}";
  for (const Microphone& mic : candidates) {
    const std::wstring id = Lowercase(mic.endpointId), name = Lowercase(mic.name);
    if (wanted.empty() || id == wanted || Lowercase(GuidOf(mic.endpointId)) == wantedGuid || name == wanted) {
      exact.push_back(&mic);
    } else if (!name.empty() && name.find(wanted) != std::wstring::npos) {
      partial.push_back(&mic);
    }
  }
  const std::vector<const Microphone*>& found = exact.empty() ? partial : exact;
  if (found.size() == 1) {
    chosen = *found.front();
    return true;
  }
  const std::string named = text.empty() ? "" : " \"" + Utf8(text) + "\"";
  if (candidates.empty()) {
    error = "no microphone has Quillon running" + (named.empty() ? std::string() : ", so none is" + named);
  } else if (found.empty()) {
    error = "no microphone matches" + named + "; candidates:";
  } else {
    error = (text.empty() ? std::string("several microphones have Quillon running; name one with --mic")
                          : "several microphones match" + named) + "; candidates:";
  }
  for (const Microphone* mic : found.empty() ? std::vector<const Microphone*>() : found) {
    error += "\n  " + Describe(*mic);
  }
  if (found.empty()) {
    for (const Microphone& mic : candidates) error += "\n  " + Describe(mic);
  }
  return false;
}

}  // namespace quillon::system
