#include "board/MicrophoneChoices.h"

#include "system/Attachment.h"
#include "system/Endpoints.h"
#include "system/Microphones.h"

namespace quillon::board {

std::vector<MicChoice> ListMicChoices() {
  const std::vector<system::Endpoint> endpoints = system::ReadEndpoints(system::Flow::kCapture);
  std::vector<MicChoice> choices;
  for (const system::Microphone& mic : system::KnownMicrophones()) {
    MicChoice choice{mic.slot >= 0 ? MicChoice::State::Running : MicChoice::State::NotAttached, mic.endpointId,
                     system::GuidOf(mic.endpointId), mic.name.empty() ? mic.endpointId : mic.name};
    for (const system::Endpoint& endpoint : endpoints) {
      if (choice.state != MicChoice::State::Running &&
          system::Lowercase(endpoint.guid) == system::Lowercase(choice.guid) && system::HasQuillon(endpoint)) {
        choice.state = MicChoice::State::Attached;
      }
    }
    choices.push_back(std::move(choice));
  }
  return choices;
}

std::wstring Explain(const MicChoice& mic) {
  switch (mic.state) {
    case MicChoice::State::Running: return mic.name + L" is ready.";
    case MicChoice::State::Attached:
      return mic.name + L": Quillon is attached, but no program records from it now. Its sounds play while a "
                        L"program (a call, a game, a recorder) records from it.";
    case MicChoice::State::NotAttached:
      return mic.name + L": Quillon is not attached to this microphone. Attach it to play sounds into it.";
  }
  return L"";
}

}  // namespace quillon::board
