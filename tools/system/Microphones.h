// The microphones a command can name: the effect instances running now (from
// the shared register) and the capture endpoints Windows knows (from the
// registry), with the friendly names Windows keeps for them.
#pragma once

#include "platform/ApoInterfaces.h"
#include "platform/UniqueResource.h"

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::system {

struct Microphone {
  std::wstring endpointId;  // as the effect knows it: "{guid}", the key name under MMDevices
  std::wstring name;        // friendly name; empty when Windows has none
  int slot = -1;            // register slot of its running effect, or -1
  UNCOMPRESSEDAUDIOFORMAT format{};  // the running effect's stream format
  bool playing = false;     // a player is sending to it now
};

// Every effect instance in use now, by slot.
std::vector<Microphone> RunningMicrophones();
// The running ones, then every capture endpoint in the registry not among them.
std::vector<Microphone> KnownMicrophones();

// The friendly name of a capture endpoint, or "".
std::wstring FriendlyName(const std::wstring& endpointId);
// "Microphone (USB Audio) {0.0.1.00000000}.{...}" or just the id.
std::string Describe(const Microphone& mic);
// "48000 Hz, 2 channels"
std::string DescribeFormat(const UNCOMPRESSEDAUDIOFORMAT& format);

// Picks the microphone that `text` names: its endpoint id, its GUID (braces
// optional) or a part of its friendly name, all case-insensitively; an exact
// id, GUID or name wins over a part. An empty text picks the only candidate.
// On failure `error` says why and lists the candidates.
bool Choose(const std::vector<Microphone>& candidates, const std::wstring& text, Microphone& chosen,
            std::string& error);

// The named event a player holds while it sends to `slot`; "playing" in
// `quillon list` is its existence.
std::wstring PlayingEventName(int slot);
// Creates that event: `slot` shows as played into while the handle is held.
UniqueHandle HoldPlayingEvent(int slot);

}  // namespace quillon::system
