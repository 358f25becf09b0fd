// quillon-play: the player application's side of the protocol, for a real
// Windows machine as much as for the demo.
//
//   quillon-play --list
//   quillon-play [--endpoint <text>] [--block-ms <n>] [--wait <seconds>] <file.wav>
//   quillon-play [--endpoint <text>] --stop
//
// Play mode finds the slot of the endpoint (or the only one in use), reads the
// stream's format from the mapping, and streams the WAV block by block. The WAV
// must already be in the stream's format; otherwise nothing is sent.
#include "common/ToolSupport.h"
#include "common/Wav.h"
#include "player/PlayerClient.h"

#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <string>

using namespace quillon;
using namespace quillon::player;
using namespace quillon::tools;

namespace {

int Usage(const char* problem) {
  std::fprintf(stderr, "quillon-play: %s\n", problem);
  std::fprintf(stderr,
               "usage: quillon-play --list\n"
               "       quillon-play [--endpoint <text>] [--block-ms <n>] [--wait <seconds>] <file.wav>\n"
               "       quillon-play [--endpoint <text>] --stop\n");
  return 2;
}

int List() {
  int shown = 0;
  for (const RegisterEntry& e : ReadRegister()) {
    if (e.endpoint.empty() && !e.inUse) continue;
    std::printf("slot %2d  %-7s  %s\n", e.slot, e.inUse ? "in use" : "free", Narrow(e.endpoint).c_str());
    ++shown;
  }
  if (shown == 0) std::printf("no effect instance has registered\n");
  return 0;
}

bool IsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
}

void Progress(size_t sent, size_t total) {
  const int width = 40;
  const int done = total == 0 ? width : static_cast<int>(static_cast<double>(sent) / total * width);
  std::printf("\r[%s%s] %3d%%", std::string(done, '#').c_str(), std::string(width - done, '.').c_str(),
              total == 0 ? 100 : static_cast<int>(100.0 * sent / total));
  std::fflush(stdout);
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  std::wstring endpoint, file;
  bool stop = false;
  double blockMs = 100.0, waitSeconds = 10.0;
  for (int i = 1; i < argc; ++i) {
    const std::wstring arg = argv[i];
    if (arg == L"--list") return List();
    if (arg == L"--stop") {
      stop = true;
    } else if (arg == L"--endpoint" && i + 1 < argc) {
      endpoint = argv[++i];
    } else if (arg == L"--block-ms" && i + 1 < argc) {
      blockMs = wcstod(argv[++i], nullptr);
    } else if (arg == L"--wait" && i + 1 < argc) {
      waitSeconds = wcstod(argv[++i], nullptr);
    } else if (arg.rfind(L"--", 0) == 0) {
      return Usage(("unknown option " + Narrow(arg)).c_str());
    } else {
      file = arg;
    }
  }
  if (!stop && file.empty()) return Usage("a WAV file, --stop or --list is required");

  WavData wav;
  if (!stop) {
    std::string error;
    if (!ReadWav(file, wav, error)) {
      std::fprintf(stderr, "quillon-play: cannot read %s: %s\n", Narrow(file).c_str(), error.c_str());
      return 1;
    }
  }

  PlayerClient player;
  if (!player.Connect(endpoint, static_cast<DWORD>(waitSeconds * 1000))) {
    std::fprintf(stderr, "quillon-play: no effect instance %s%s is running\n",
                 endpoint.empty() ? "(exactly one)" : "for endpoint ", Narrow(endpoint).c_str());
    return 1;
  }
  if (stop) {
    if (!player.Stop(5000)) {
      std::fprintf(stderr, "quillon-play: the effect did not answer the stop request\n");
      return 1;
    }
    std::printf("stopped\n");
    return 0;
  }

  const UNCOMPRESSEDAUDIOFORMAT f = player.Format();
  const uint32_t rate = static_cast<uint32_t>(std::lround(f.fFramesPerSecond));
  if (!wav.isFloat || wav.bitsPerSample != 32 || wav.rate != rate || wav.channels != f.dwSamplesPerFrame) {
    std::fprintf(stderr,
                 "quillon-play: %s is %s, but the stream is %s.\n"
                 "Convert it first, for example:\n  sox \"%s\" -e floating-point -b 32 -r %u -c %u converted.wav\n"
                 "Nothing was sent.\n",
                 Narrow(file).c_str(), DescribeFormat(wav.rate, wav.channels, wav.isFloat, wav.bitsPerSample).c_str(),
                 DescribeFormat(rate, f.dwSamplesPerFrame, true, 32).c_str(), Narrow(file).c_str(), rate,
                 static_cast<unsigned>(f.dwSamplesPerFrame));
    return 1;
  }

  const size_t blockSamples = std::min<size_t>(
      TransferBlock::kMaxSamples,
      std::max<size_t>(1, static_cast<size_t>(rate * blockMs / 1000.0)) * f.dwSamplesPerFrame);
  const bool terminal = IsTerminal();
  std::printf("slot %d, %s: sending %zu samples in blocks of %zu\n", player.Slot(),
              DescribeFormat(rate, f.dwSamplesPerFrame, true, 32).c_str(), wav.samples.size(), blockSamples);
  for (size_t sent = 0; sent < wav.samples.size();) {
    const size_t n = std::min(blockSamples, wav.samples.size() - sent);
    const SendResult r = player.Send(wav.samples.data() + sent, static_cast<uint32_t>(n * sizeof(float)), 10000);
    if (sent == 0 && r == SendResult::Accepted) {
      std::printf("first block taken at qpc_us=%lld\n", static_cast<long long>(MonotonicMicroseconds()));
    }
    if (r == SendResult::Closed) {
      std::printf("%sthe effect instance went away; %zu of %zu samples were sent\n", terminal ? "\n" : "", sent,
                  wav.samples.size());
      return 0;
    }
    if (r != SendResult::Accepted) {
      std::fprintf(stderr, "%squillon-play: the effect did not take a block (%s)\n", terminal ? "\n" : "",
                   r == SendResult::MutexBusy ? "transfer mutex busy" : "timed out");
      return 1;
    }
    sent += n;
    if (terminal) Progress(sent, wav.samples.size());
  }
  std::printf("%sdone: %zu samples sent\n", terminal ? "\n" : "", wav.samples.size());
  return 0;
}
