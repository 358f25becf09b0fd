// Running the tools as a user does, in processes of their own: `quillon`
// commands with their output and exit code, and quillon-host as the engine;
// the sounds made for the run (tools/make-sounds.sh) and what they wrote.
#pragma once

#include "audio/SoundFile.h"
#include "support/ChildProcess.h"
#include "support/Poll.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace quillon::test {

struct CommandResult {
  long exit = -1;
  std::string text;  // standard output and error together, LF line ends
};

// `quillon <args>`, waited for at most `timeoutMs`.
// `program` may name another copy of quillon.exe; `token` runs it as another user.
inline CommandResult RunQuillon(const std::wstring& args, DWORD timeoutMs = 60000,
                                const std::wstring& program = L"quillon.exe", HANDLE token = nullptr) {
  const std::wstring output = ExecutableFolder() + L"quillon-command-out.txt";
  CommandResult result;
  result.exit = ChildProcess(program, args, output, token).Wait(timeoutMs);  // ended (or killed) before the read
  // Lines end in CR LF, as Windows text does; the tests compare LF lines.
  result.text = ReadText(output);
  result.text.erase(std::remove(result.text.begin(), result.text.end(), '\r'), result.text.end());
  return result;
}

// Whether `text` holds every one of `parts`; a failure names those missing and shows the text.
inline ::testing::AssertionResult Shows(const std::string& text, std::initializer_list<std::string> parts) {
  std::string missing;
  for (const std::string& part : parts) {
    if (text.find(part) == std::string::npos) missing += "\"" + part + "\"\n";
  }
  if (missing.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "missing:\n" << missing << "in:\n" << text;
}

// Whether `quillon <args>` (of `program`) exits with `exit` and shows every one of `parts`.
inline ::testing::AssertionResult Exits(long exit, const std::wstring& args,
                                        std::initializer_list<std::string> parts = {},
                                        const std::wstring& program = L"quillon.exe") {
  const CommandResult r = RunQuillon(args, 60000, program);
  if (r.exit != exit) return ::testing::AssertionFailure() << "exit code " << r.exit << ":\n" << r.text;
  return Shows(r.text, parts);
}

// The folder of the made sounds; the tests write their output files there
// too, each named out-<name>.
inline std::wstring Sounds() { return ExecutableFolder() + L"..\\sounds\\"; }
inline std::wstring Scratch(const std::wstring& name) { return Sounds() + L"out-" + name; }

// `sound` written as the float32 WAV out-<name>.wav; its path.
inline std::wstring WriteWav(const std::wstring& name, const audio::Sound& sound) {
  const std::wstring path = Scratch(name + L".wav");
  std::string error;
  EXPECT_TRUE(audio::WriteSound(path, sound, error)) << error;
  return path;
}

// quillon.exe running on its own, its output in out-<name>.txt.
struct QuillonProcess {
  QuillonProcess(const std::wstring& name, const std::wstring& args)
      : output(Scratch(name + L".txt")), process(L"quillon.exe", args, output) {}
  std::string Text() const { return ReadText(output); }
  bool Ended() { return WaitForSingleObject(process.Handle(), 0) == WAIT_OBJECT_0; }
  std::wstring output;
  ChildProcess process;
};

// A test's name made of a file's: what is not a letter or a digit becomes '_'.
inline std::string TestName(std::string name) {
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

// Normalised correlation of `out`'s channel `c` from frame `lag` on with the
// reference's channel `c`, over the reference's first `limit` frames.
inline double Correlation(const audio::Sound& out, const audio::Sound& ref, size_t lag, uint32_t c,
                          size_t limit = SIZE_MAX) {
  const size_t frames = std::min(limit, ref.samples.size() / ref.channels);
  double xy = 0, xx = 0, yy = 0;
  for (size_t f = 0; f < frames && lag + f < out.samples.size() / out.channels; ++f) {
    const double x = out.samples[(lag + f) * out.channels + c], y = ref.samples[f * ref.channels + c];
    xy += x * y;
    xx += x * x;
    yy += y * y;
  }
  return xx > 0 && yy > 0 ? xy / std::sqrt(xx * yy) : 0.0;
}

// The first frame with a sample above `floor` in magnitude.
inline size_t FirstSound(const audio::Sound& sound, float floor = 0.0f) {
  size_t first = 0;
  while (first < sound.samples.size() && std::fabs(sound.samples[first]) <= floor) ++first;
  return first / sound.channels;
}

inline bool SilentFrame(const audio::Sound& sound, size_t frame) {
  for (uint32_t c = 0; c < sound.channels; ++c) {
    if (sound.samples[frame * sound.channels + c] != 0.0f) return false;
  }
  return true;
}

// The host's period: 10 ms at 48 kHz.
constexpr size_t kPeriodFrames = 480;

// `sound` without the silences inside it, two frames or longer, that end
// where a period begins; `removed` counts the frames taken out.
//
// A player starved of time (an emulated ARM64 run on a busy machine) leaves
// the rest of a chunk silent and the sound goes on after it: nothing is lost,
// but the rest is later. The effect takes chunks only at the start of a
// period, so such a silence ends where a period begins; the sounds' own
// silences end elsewhere. The tests take them out, count them and print them.
inline audio::Sound WithoutGaps(const audio::Sound& sound, size_t& removed) {
  const size_t frames = sound.samples.size() / sound.channels;
  size_t first = 0, last = frames;
  while (first < frames && SilentFrame(sound, first)) ++first;
  while (last > first && SilentFrame(sound, last - 1)) --last;
  audio::Sound kept = sound;
  kept.samples.clear();
  removed = 0;
  for (size_t f = 0; f < frames;) {
    size_t run = 0;
    while (f + run < frames && SilentFrame(sound, f + run)) ++run;
    if (run >= 2 && f > first && f + run < last && (f + run) % kPeriodFrames == 0) {
      removed += run;
      f += run;
      continue;
    }
    const size_t end = f + std::max<size_t>(run, 1);
    kept.samples.insert(kept.samples.end(), sound.samples.begin() + static_cast<std::ptrdiff_t>(f * sound.channels),
                        sound.samples.begin() + static_cast<std::ptrdiff_t>(end * sound.channels));
    f = end;
  }
  return kept;
}

// `sound` without such gaps, their frames printed under `name`.
inline audio::Sound WithoutGaps(const audio::Sound& sound, const char* name) {
  size_t removed = 0;
  audio::Sound kept = WithoutGaps(sound, removed);
  std::printf("[ gaps     ] %-22s silent frames inside the sound: %zu\n", name, removed);
  return kept;
}

// One past the last frame with a sample above `floor` in magnitude.
inline size_t LastSound(const audio::Sound& sound, float floor = 0.0f) {
  size_t last = sound.samples.size();
  while (last > 0 && std::fabs(sound.samples[last - 1]) <= floor) --last;
  return (last + sound.channels - 1) / sound.channels;
}

// The number written after `key` in a program's output, or -1.
inline long long NumberAfter(const std::string& text, const std::string& key) {
  const size_t at = text.find(key);
  return at == std::string::npos ? -1 : std::stoll(text.substr(at + key.size()));
}

inline float Peak(const audio::Sound& sound) {
  float peak = 0;
  for (float v : sound.samples) peak = std::max(peak, std::fabs(v));
  return peak;
}

inline audio::Sound LoadSound(const std::wstring& path) {
  audio::Sound sound;
  std::string error;
  EXPECT_TRUE(audio::ReadSound(path, sound, error)) << error;
  return sound;
}

// quillon-host as the engine of `endpoint` (with `hostArgs`) writing
// out-<name>.wav, and, when `playerFile` is given, `quillon play` of it (and
// `playArgs`), which waits for the host's effect to register; both run to
// their end.
struct ToolRun {
  std::string hostText, playerText;
  long hostExit = -1, playerExit = -1;
  audio::Sound output;
};

inline ToolRun HostAndPlayer(const std::wstring& endpoint, const std::wstring& hostArgs,
                             const std::wstring& playerFile, const std::wstring& name,
                             const std::wstring& playArgs = L"") {
  ToolRun run;
  ChildProcess host(L"quillon-host.exe",
                    L"--endpoint " + endpoint + L" --out \"" + Scratch(name + L".wav") + L"\" " + hostArgs,
                    Scratch(name + L"-host.txt"));
  if (!playerFile.empty()) {
    QuillonProcess player(name + L"-player",
                          L"play --verbose --wait 20 --mic " + endpoint + L" \"" + playerFile + L"\" " + playArgs);
    run.playerExit = player.process.Wait(120000);
    run.playerText = player.Text();
  }
  run.hostExit = host.Wait(120000);
  run.hostText = ReadText(Scratch(name + L"-host.txt"));
  run.output = LoadSound(Scratch(name + L".wav"));
  return run;
}

}  // namespace quillon::test
