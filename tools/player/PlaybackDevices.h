// The playback devices Windows has now, and the one a user names.
#pragma once

#include <string>
#include <vector>

namespace quillon::player {

struct PlaybackDevice {
  std::wstring id;    // the endpoint id, "{0.0.0.00000000}.{guid}"
  std::wstring name;  // its friendly name
  bool isDefault = false;
};

// The active playback devices; on failure empty, with `error` saying why.
std::vector<PlaybackDevice> ListPlaybackDevices(std::string& error);

// The device `wanted` names: empty for the default one, else its id or a part
// of its friendly name that fits only it (case does not matter). On failure
// `error` is one line naming `wanted` and the candidates.
bool ChoosePlaybackDevice(const std::wstring& wanted, PlaybackDevice& device, std::string& error);

}  // namespace quillon::player
