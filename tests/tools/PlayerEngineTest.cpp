// Sounds that overlap, a voice stopped while another plays, and push-to-talk,
// through `quillon play` and through the player engine in this process,
// against the real Quillon.dll in quillon-host as the audio engine.
#include "common/ToolSupport.h"
#include "player/PlayerEngine.h"
#include "player/PushToTalk.h"
#include "support/QuillonRun.h"
#include "support/SharedFiles.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <initializer_list>
#include <mutex>
#include <thread>
#include <vector>

namespace quillon::test {
namespace {

constexpr const wchar_t* kMic = L"{0.0.1.00000000}.{e0a70000-0000-4000-8000-000000000001}";

// The frame from which `out` and `ref`, both 48 kHz stereo, line up.
size_t Lag(const audio::Sound& out, const audio::Sound& ref) {
  const size_t out0 = FirstSound(out), ref0 = FirstSound(ref);
  return out0 > ref0 ? out0 - ref0 : 0;
}

// What quillon-host's effect puts out while `quillon play --together` plays
// two of the made sounds into it.
audio::Sound PlayedTogether(const std::wstring& a, const std::wstring& b, const std::wstring& name) {
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 4", Sounds() + a, name, L"\"" + Sounds() + b + L"\" --together");
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  EXPECT_EQ(0, run.hostExit) << run.hostText;
  return WithoutGaps(run.output, "together");
}

TEST(PlayTogether, TwoFilesArriveAsTheirSum) {
  const audio::Sound sum = LoadSound(Sounds() + L"together-sum-ref.wav");
  const audio::Sound out = PlayedTogether(L"together-a.wav", L"together-b.flac", L"together");
  const size_t lag = Lag(out, sum);
  for (uint32_t c = 0; c < 2; ++c) {
    const double value = Correlation(out, sum, lag, c);
    std::printf("[ xcorr    ] together channel %u: %.6f at frame %zu\n", c, value, lag);
    EXPECT_GT(value, 0.99999) << "channel " << c;
  }
}

// Two tones at 0.8 each: their sum reaches 1.6. What arrives stays within
// full scale and keeps the sum's shape (a clipped sum does not: 0.98).
TEST(PlayTogether, ALoudPairStaysWithinFullScale) {
  const audio::Sound a = LoadSound(Sounds() + L"loud-a.wav"), b = LoadSound(Sounds() + L"loud-b.wav");
  audio::Sound sum = a, clipped = a;
  for (size_t i = 0; i < sum.samples.size(); ++i) {
    sum.samples[i] += b.samples[i];
    clipped.samples[i] = std::clamp(sum.samples[i], -1.0f, 1.0f);
  }
  const audio::Sound out = PlayedTogether(L"loud-a.wav", L"loud-b.wav", L"loud");
  const float peak = Peak(out);
  EXPECT_LE(peak, 1.0f);
  EXPECT_GT(peak, 0.9f) << "turned down too far";
  const double shape = Correlation(out, sum, Lag(out, sum), 0), clippedShape = Correlation(clipped, sum, 0, 0);
  std::printf("[ limiter  ] peak %.4f; correlation with the sum %.5f (clipped: %.5f)\n", peak, shape, clippedShape);
  EXPECT_GT(shape, 0.995);
  EXPECT_LT(clippedShape, 0.995);
}

// A 4-second tone is stopped half a second in while a 1.5-second one plays,
// through the engine in this process: the stopped one ends within what was
// queued, and from there on the output is the other alone, bit for bit, to
// its last sample (a late block's silence taken out).
TEST(PlayerEngine, StoppingOneVoiceLeavesTheOtherWhole) {
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + std::wstring(kMic) + L" --seconds 5 --out \"" +
                                             Scratch(L"stop-one.wav") + L"\"");
  ASSERT_TRUE(PollUntil([] { return SlotOf(kMic) >= 0; }));
  auto client = std::make_unique<player::PlayerClient>();
  ASSERT_EQ(player::PlayerStatus::Ok, client->Connect(kMic, 20000));
  std::atomic<double> stoppedRead{0};
  std::atomic<int> stoppedId{-1};
  player::PlayerEngine engine(std::move(client), {}, [&](const player::EngineEvent& e) {
    if (e.voice == stoppedId && e.event == player::VoiceEvent::Progress) stoppedRead = e.seconds;
  });
  const std::wstring stays = Sounds() + L"stays.wav";
  const std::vector<int> ids = engine.StartTogether({{{stays}}, {{Sounds() + L"stopped.wav"}}});
  stoppedId = ids[1];
  ASSERT_TRUE(PollUntil([&] { return stoppedRead >= 0.5; }));
  engine.Stop(ids[1]);
  EXPECT_FALSE(engine.Playing(ids[1]));
  EXPECT_EQ(player::PlayerStatus::Ok, engine.WaitIdle(nullptr));
  EXPECT_EQ(0, host.Wait(60000));
  const audio::Sound out = WithoutGaps(LoadSound(Scratch(L"stop-one.wav")), "stop-one"), alone = LoadSound(stays);
  const size_t lag = FirstSound(out), frames = alone.samples.size() / 2;
  ASSERT_GE(out.samples.size() / 2, lag + frames + 4800);
  // The last frame where the stopped tone still adds to the other.
  size_t mixedUntil = 0;
  for (size_t i = 0; i < frames * 2; ++i) {
    if (out.samples[lag * 2 + i] != alone.samples[i]) mixedUntil = i / 2 + 1;
  }
  EXPECT_GT(mixedUntil, 24000u) << "the stopped tone never played";
  EXPECT_LT(mixedUntil, 48000u) << "the stopped tone played on";
  for (size_t i = (lag + frames) * 2; i < out.samples.size(); ++i) ASSERT_EQ(0.0f, out.samples[i]) << i / 2;
}

// The events of an engine, kept as they come from its reporter.
class EventLog {
 public:
  player::PlayerEngine::Listener Listener() {
    return [this](const player::EngineEvent& e) {
      std::lock_guard<std::mutex> lock(lock_);
      events_.push_back(e);
    };
  }
  std::vector<player::EngineEvent> Of(int voice) const {
    std::lock_guard<std::mutex> lock(lock_);
    std::vector<player::EngineEvent> found;
    for (const auto& e : events_) {
      if (e.voice == voice) found.push_back(e);
    }
    return found;
  }
  // Seconds of the voice played, as its last progress said.
  double Played(int voice) const {
    double seconds = -1;
    for (const auto& e : Of(voice)) {
      if (e.event == player::VoiceEvent::Progress) seconds = e.seconds;
    }
    return seconds;
  }

 private:
  mutable std::mutex lock_;
  std::vector<player::EngineEvent> events_;
};

// An engine in this process playing into quillon-host's effect, which runs
// `seconds` and writes out-<name>.wav.
struct EngineRun {
  EngineRun(const std::wstring& name, int seconds)
      : out(Scratch(name + L".wav")),
        host(L"quillon-host.exe", L"--endpoint " + std::wstring(kMic) + L" --seconds " + std::to_wstring(seconds) +
                                      L" --out \"" + out + L"\"") {}
  std::unique_ptr<player::PlayerEngine> Connect() {
    if (!PollUntil([] { return SlotOf(kMic) >= 0; })) return nullptr;
    auto client = std::make_unique<player::PlayerClient>();
    if (client->Connect(kMic, 20000) != player::PlayerStatus::Ok) return nullptr;
    return std::make_unique<player::PlayerEngine>(std::move(client), player::EngineOptions{}, log.Listener());
  }
  std::wstring out;
  ChildProcess host;
  EventLog log;
};

// A tone plays while a 30-minute MP3 without a length tag starts 0.7 s in:
// the MP3 is opened and decoded away from the mixing thread, so the tone goes
// on without stopping, and the MP3 is heard. Opening such a file where the
// mix is made silences the tone for as long as the open takes (reading it
// through took seconds). The bound is 200 ms, not one period: the emulated
// ARM64 bench, where Wine neither joins the Pro Audio task nor turns thread
// priorities into nice values, once left the mixing thread without the CPU
// for 70 ms while the MP3's decoder started.
TEST(PlayerEngine, ALongUntaggedMp3JoinsWithoutAGapInAnotherSound) {
  EngineRun run(L"untagged-join", 5);
  auto engine = run.Connect();
  ASSERT_TRUE(engine);
  const std::wstring toneFile = Sounds() + L"stopped.wav";
  const int tone = engine->Start({{toneFile}});
  ASSERT_TRUE(PollUntil([&] { return run.log.Played(tone) >= 0.7; }));
  const int mp3 = engine->Start({{Sounds() + L"long-untagged.mp3"}});
  ASSERT_TRUE(PollUntil([&] { return run.log.Played(mp3) >= 1.0; }));
  engine->Stop(mp3);
  EXPECT_EQ(player::PlayerStatus::Ok, engine->WaitIdle(nullptr));
  const int64_t slowestMixUs = engine->SlowestMixMicroseconds();
  engine.reset();
  ASSERT_EQ(0, run.host.Wait(60000));

  const audio::Sound out = LoadSound(run.out), alone = LoadSound(toneFile);
  const size_t at = FirstSound(out), frames = alone.samples.size() / 2;
  ASSERT_GE(out.samples.size() / 2, at + frames);
  size_t run0 = 0, longest = 0;
  for (size_t f = at; f < at + frames; ++f) {
    run0 = out.samples[f * 2] == 0.0f && out.samples[f * 2 + 1] == 0.0f ? run0 + 1 : 0;
    longest = std::max(longest, run0);
  }
  std::printf("[ gaps     ] longest silence inside the tone while the MP3 joined: %zu frames; slowest block %lld us\n",
              longest, static_cast<long long>(slowestMixUs));
  EXPECT_LE(longest, 48000u / 5) << "the tone went silent";
  // Less the tone, what is left is the MP3 (a 300 Hz sine at 0.5).
  float mp3Peak = 0;
  for (size_t i = 0; i < frames * 2; ++i) mp3Peak = std::max(mp3Peak, std::fabs(out.samples[at * 2 + i] - alone.samples[i]));
  EXPECT_GT(mp3Peak, 0.4f) << "the MP3 was not heard";
}

// Every voice ends with exactly one event, the one that says how: one plays
// to its end, one is stopped, one names a missing file, one a file that holds
// no sound. Nothing is said of a voice after its end.
TEST(PlayerEngine, EveryVoiceEndsWithExactlyOneEvent) {
  using player::VoiceEvent;
  EngineRun run(L"one-end", 4);
  auto engine = run.Connect();
  ASSERT_TRUE(engine);
  const std::vector<int> ids = engine->StartTogether({{{Sounds() + L"stays.wav"}}, {{Sounds() + L"stopped.wav"}},
                                                      {{Sounds() + L"no-such-file.wav"}}, {{Sounds() + L"not-a-wav.wav"}}});
  ASSERT_TRUE(PollUntil([&] { return run.log.Played(ids[1]) >= 0.3; }));
  engine->Stop(ids[1]);
  EXPECT_EQ(player::PlayerStatus::Ok, engine->WaitIdle(nullptr));
  const VoiceEvent expected[] = {VoiceEvent::Ended, VoiceEvent::Stopped, VoiceEvent::Failed, VoiceEvent::Failed};
  for (size_t i = 0; i < ids.size(); ++i) {
    const std::vector<player::EngineEvent> events = run.log.Of(ids[i]);
    const auto last = [](const player::EngineEvent& e) {
      return e.event == VoiceEvent::Ended || e.event == VoiceEvent::Stopped || e.event == VoiceEvent::Failed;
    };
    ASSERT_FALSE(events.empty()) << "voice " << i;
    EXPECT_EQ(1, std::count_if(events.begin(), events.end(), last)) << "voice " << i;
    EXPECT_EQ(expected[i], events.back().event) << "voice " << i;
    EXPECT_FALSE(engine->Playing(ids[i]));
  }
  EXPECT_EQ(L"stays.wav", run.log.Of(ids[0]).front().file.substr(run.log.Of(ids[0]).front().file.size() - 9));
  engine.reset();
  EXPECT_EQ(0, run.host.Wait(60000));
}

// Keyboard events as a low-level hook in this process sees them, with the
// monotonic time they arrived.
class KeyWatch {
 public:
  struct Key { UINT key; bool up; int64_t us; DWORD flags = 0; DWORD scan = 0; };
  KeyWatch() {
    thread_ = std::thread([this] {
      watch_ = this;
      HHOOK hook = SetWindowsHookExW(WH_KEYBOARD_LL, &KeyWatch::Hook, GetModuleHandleW(nullptr), 0);
      threadId_ = GetCurrentThreadId();
      MSG message;
      PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // the queue exists before the id is read
      ready_ = hook != nullptr ? 1 : -1;
      while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
      if (hook != nullptr) UnhookWindowsHookEx(hook);
    });
    PollUntil([&] { return ready_ != 0; });
  }
  ~KeyWatch() {
    PostThreadMessageW(threadId_, WM_QUIT, 0, 0);
    thread_.join();
    watch_ = nullptr;
  }
  bool Hooked() const { return ready_ == 1; }
  // The events of `key`, or of any of `keys` (Windows reports a modifier
  // by its side: VK_LCONTROL for VK_CONTROL).
  std::vector<Key> Of(std::initializer_list<UINT> keys) {
    std::lock_guard<std::mutex> lock(lock_);
    std::vector<Key> found;
    for (const Key& k : keys_) {
      if (std::find(keys.begin(), keys.end(), k.key) != keys.end()) found.push_back(k);
    }
    return found;
  }

 private:
  static LRESULT CALLBACK Hook(int code, WPARAM message, LPARAM data) {
    if (code == HC_ACTION && watch_ != nullptr) {
      const auto* event = reinterpret_cast<const KBDLLHOOKSTRUCT*>(data);
      const bool up = message == WM_KEYUP || message == WM_SYSKEYUP;
      std::lock_guard<std::mutex> lock(watch_->lock_);
      watch_->keys_.push_back({event->vkCode, up, tools::MonotonicMicroseconds(), event->flags, event->scanCode});
    }
    return CallNextHookEx(nullptr, code, message, data);
  }

  static inline KeyWatch* watch_ = nullptr;
  std::atomic<int> ready_{0};
  DWORD threadId_ = 0;
  std::mutex lock_;
  std::vector<Key> keys_;
  std::thread thread_;
};

TEST(PushToTalk, KeyHeldFromBeforeTheSoundUntilItsTailEnds) {
  KeyWatch keys;
  ASSERT_TRUE(keys.Hooked());
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 4", Sounds() + L"tone.wav", L"ptt",
                                    L"--ptt Ctrl+F13 --ptt-tail 300");
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  const int64_t sound = NumberAfter(run.hostText, "qpc_us="), toneUs = 1500000;  // the first period with sound
  ASSERT_GT(sound, 0) << run.hostText;
  const std::vector<KeyWatch::Key> f13 = keys.Of({VK_F13}), ctrl = keys.Of({VK_CONTROL, VK_LCONTROL});
  ASSERT_EQ(2u, f13.size());
  ASSERT_EQ(2u, ctrl.size());
  EXPECT_TRUE(!f13[0].up && f13[1].up);
  EXPECT_LT(ctrl[0].us, f13[0].us) << "the modifier goes down first";
  EXPECT_GT(ctrl[1].us, f13[1].us) << "and comes up last";
  EXPECT_LT(f13[0].us, sound) << "pressed after the sound began";
  EXPECT_GT(f13[1].us, sound + toneUs) << "released before the sound ended";
  std::printf("[ ptt      ] pressed %lld ms before the first sound, released %lld ms after the tone's end\n",
              static_cast<long long>((sound - f13[0].us) / 1000),
              static_cast<long long>((f13[1].us - sound - toneUs) / 1000));
}

// Keys as a game that reads scan codes sees them: the keys that sit after
// the 0xE0 prefix go out with the extended flag and their own scan code, the
// others without the flag.
TEST(PushToTalk, ExtendedKeysCarryTheExtendedFlag) {
  struct Case { const char* text; UINT key; bool extended; };
  const Case cases[] = {{"RCtrl", VK_RCONTROL, true}, {"RAlt", VK_RMENU, true},   {"Right", VK_RIGHT, true},
                        {"Delete", VK_DELETE, true},  {"PageUp", VK_PRIOR, true}, {"NumDivide", VK_DIVIDE, true},
                        {"NumEnter", VK_RETURN, true}, {"F15", VK_F15, false},     {"Num5", VK_NUMPAD5, false},
                        {"LCtrl", VK_LCONTROL, false}};
  KeyWatch keys;
  ASSERT_TRUE(keys.Hooked());
  for (const Case& c : cases) {
    tools::KeyChord chord;
    std::string error;
    ASSERT_TRUE(tools::ParseKeyChord(c.text, chord, error)) << error;
    {
      player::HeldKeys held;
      ASSERT_TRUE(held.Press(chord)) << c.text;
    }  // released on the way out
    ASSERT_TRUE(PollUntil([&] { return keys.Of({c.key}).size() == 2; })) << c.text;
    for (const KeyWatch::Key& k : keys.Of({c.key})) {
      EXPECT_EQ(c.extended, (k.flags & LLKHF_EXTENDED) != 0) << c.text << (k.up ? " up" : " down");
      EXPECT_EQ(MapVirtualKeyW(c.key, MAPVK_VK_TO_VSC) & 0xFF, k.scan & 0xFF) << c.text;
    }
  }
}

// The key comes up on the ways out that are not the sound's end: Ctrl+C, and
// the effect's process dying.
enum class WayOut { CtrlC, EffectGone };

class PushToTalkWayOut : public ::testing::TestWithParam<WayOut> {};

TEST_P(PushToTalkWayOut, ReleasesTheKey) {
  KeyWatch keys;
  ASSERT_TRUE(keys.Hooked());
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + std::wstring(kMic) + L" --seconds 30 --out \"" +
                                             Scratch(L"ptt-out.wav") + L"\"");
  QuillonProcess player(L"ptt-out", L"play --wait 20 --mic " + std::wstring(kMic) + L" --ptt F14 \"" + Sounds() +
                                        L"stopped.wav\"");
  ASSERT_TRUE(PollUntil([&] { return !keys.Of({VK_F14}).empty(); })) << player.Text();
  if (GetParam() == WayOut::CtrlC) {
    ASSERT_TRUE(player.process.Interrupt(CTRL_C_EVENT));
    EXPECT_EQ(130, player.process.Wait()) << player.Text();
  } else {
    host.Kill();
    EXPECT_EQ(1, player.process.Wait()) << player.Text();
  }
  EXPECT_TRUE(PollUntil([&] {
    const std::vector<KeyWatch::Key> f14 = keys.Of({VK_F14});
    return f14.size() == 2 && f14[1].up;
  })) << "the key is still down";
}

INSTANTIATE_TEST_SUITE_P(Play, PushToTalkWayOut, ::testing::Values(WayOut::CtrlC, WayOut::EffectGone),
                         [](const auto& info) { return info.param == WayOut::CtrlC ? "CtrlC" : "EffectGone"; });

}  // namespace
}  // namespace quillon::test
