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
#include "common/ConsoleInterrupt.h"
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
  if (!(blockMs > 0) || !(waitSeconds >= 0)) return Usage("--block-ms must be positive and --wait not negative");

  WavData wav;
  if (!stop) {
    std::string error;
    if (!ReadWav(file, wav, error)) {
      std::fprintf(stderr, "quillon-play: cannot read %s: %s\n", Narrow(file).c_str(), error.c_str());
      return 1;
    }
    if (wav.samples.size() < wav.channels) {
      std::fprintf(stderr, "quillon-play: %s holds no sound. Nothing was sent.\n", Narrow(file).c_str());
      return 1;
    }
  }

  ConsoleInterrupt interrupt;
  PlayerClient player(interrupt.Event());
  const DWORD waitMs = static_cast<DWORD>(waitSeconds * 1000);
  const PlayerStatus connected = player.Connect(endpoint, waitMs);
  if (connected == PlayerStatus::Interrupted) return kExitInterrupted;
  if (connected != PlayerStatus::Ok) {
    std::fprintf(stderr, "quillon-play: %s%s%s\n", player.Explain(connected).c_str(),
                 endpoint.empty() ? "" : ": ", Narrow(endpoint).c_str());
    return 1;
  }
  if (stop) {
    const PlayerStatus s = player.Stop(5000);
    if (s == PlayerStatus::Interrupted) return kExitInterrupted;
    if (s != PlayerStatus::Ok) {
      std::fprintf(stderr, "quillon-play: the effect did not answer the stop request\n");
      return 1;
    }
    std::printf("stopped\n");
    return 0;
  }

  const UNCOMPRESSEDAUDIOFORMAT f = player.Format();
  const uint32_t rate = static_cast<uint32_t>(std::lround(f.fFramesPerSecond));
  const uint32_t channels = player.Channels();
  if (!wav.isFloat || wav.bitsPerSample != 32 || wav.rate != rate || wav.channels != channels) {
    std::fprintf(stderr,
                 "quillon-play: %s is %s, but the stream is %s.\n"
                 "Convert it first, for example:\n  sox \"%s\" -e floating-point -b 32 -r %u -c %u converted.wav\n"
                 "Nothing was sent.\n",
                 Narrow(file).c_str(), DescribeFormat(wav.rate, wav.channels, wav.isFloat, wav.bitsPerSample).c_str(),
                 DescribeFormat(rate, channels, true, 32).c_str(), Narrow(file).c_str(), rate, channels);
    return 1;
  }

  // Whole frames only: a partial last frame is dropped, and every block holds
  // whole frames, so that a short queue never shifts the channels.
  const size_t total = wav.samples.size() - wav.samples.size() % channels;
  const size_t blockFrames = std::max<size_t>(1, static_cast<size_t>(rate * blockMs / 1000.0));
  const size_t blockSamples = std::min(player.MaxBlockSamples(), blockFrames * channels);
  const bool terminal = IsTerminal();
  std::printf("slot %d, %s: sending %zu samples in blocks of %zu\n", player.Slot(),
              DescribeFormat(rate, channels, true, 32).c_str(), total, blockSamples);
  for (size_t sent = 0; sent < total;) {
    const size_t n = std::min(blockSamples, total - sent);
    const PlayerStatus s =
        interrupt.Raised() ? PlayerStatus::Interrupted : player.Send(wav.samples.data() + sent, n, std::max<DWORD>(waitMs, 1000));
    if (s == PlayerStatus::Interrupted) {
      player.Abandon();
      std::printf("%sinterrupted: %zu of %zu samples were sent, the rest was dropped\n", terminal ? "\n" : "", sent,
                  total);
      return kExitInterrupted;
    }
    if (s != PlayerStatus::Ok) {
      std::fprintf(stderr, "%squillon-play: %s; %zu of %zu samples were sent\n", terminal ? "\n" : "",
                   player.Explain(s).c_str(), sent, total);
      return 1;
    }
    if (sent == 0) {
      // Watched by other programs (the demo, the tests) while the sound plays.
      std::printf("first block taken at qpc_us=%lld\n", static_cast<long long>(MonotonicMicroseconds()));
      std::fflush(stdout);
    }
    sent += n;
    if (terminal) Progress(sent, total);
  }
  std::printf("%sdone: %zu samples sent\n", terminal ? "\n" : "", total);
  return 0;
}
