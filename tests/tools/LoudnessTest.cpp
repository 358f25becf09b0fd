// `quillon loudness` as a script runs it (--json): EBU Tech 3341's signals
// measure as the standard says, and the sounds the other tests use measure
// as ffmpeg's ebur128 filter (another implementation) measures them.
#include "support/QuillonRun.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <fstream>

namespace quillon::test {
namespace {

// quillon loudness --json on these files: its exit code and what it printed.
struct Measured {
  long exit = -1;
  nlohmann::json files;
  std::string text;
};

Measured Measure(const std::wstring& name, const std::wstring& files) {
  QuillonProcess run(name, L"loudness --json " + files);
  Measured m;
  m.exit = run.process.Wait(120000);
  m.text = run.Text();
  const size_t at = m.text.find('{');
  if (at != std::string::npos) m.files = nlohmann::json::parse(m.text.substr(at), nullptr, false).value("files", nlohmann::json::array());
  return m;
}

struct Standard {
  const char* file;
  double lufs;            // NAN: none expected; INFINITY: not looked at
  double truePeak;        // NAN: none expected; INFINITY: not looked at
  const char* gainFrom;
};

class LoudnessStandard : public ::testing::TestWithParam<Standard> {};

// Within 0.1 LU of EBU Tech 3341's values, and a true peak within the
// standard's +0.2/-0.4 dB; a short sound has no integrated loudness, and
// silence neither a loudness nor a peak, and no gain.
TEST_P(LoudnessStandard, MeasuresAsTheStandardSays) {
  const Standard& row = GetParam();
  const std::wstring file = Sounds() + std::wstring(row.file, row.file + std::strlen(row.file));
  const Measured m = Measure(L"loudness-" + std::wstring(row.file, row.file + std::strlen(row.file)), L"\"" + file + L"\"");
  ASSERT_EQ(0, m.exit) << m.text;
  ASSERT_EQ(1u, m.files.size()) << m.text;
  const nlohmann::json& f = m.files[0];
  std::printf("[ loudness ] %-16s %s\n", row.file, f.dump().c_str());
  if (std::isnan(row.lufs)) {
    EXPECT_TRUE(f["lufs"].is_null()) << m.text;
  } else if (std::isfinite(row.lufs)) {
    ASSERT_TRUE(f["lufs"].is_number()) << m.text;
    EXPECT_NEAR(row.lufs, f["lufs"].get<double>(), 0.1);
  }
  if (std::isnan(row.truePeak)) {
    EXPECT_TRUE(f["truePeak"].is_null()) << m.text;
  } else if (std::isfinite(row.truePeak)) {
    ASSERT_TRUE(f["truePeak"].is_number()) << m.text;
    EXPECT_LE(f["truePeak"].get<double>(), row.truePeak + 0.2);
    EXPECT_GE(f["truePeak"].get<double>(), row.truePeak - 0.4);
  }
  EXPECT_EQ(row.gainFrom, f["gainFrom"].get<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Tech3341, LoudnessStandard, ::testing::Values(
    Standard{"ebu-23.wav", -23.0, -23.0, "loudness"},
    Standard{"ebu-33.wav", -33.0, -33.0, "loudness"},
    // 12 kHz at 0.5 with its samples 45 degrees off the crests: the true peak is
    // -6.02 dBTP though no sample is above -9 dBFS.
    Standard{"true-peak.wav", INFINITY, -6.02, "loudness"},
    Standard{"short-tone.wav", NAN, -12.0, "true peak only"},
    Standard{"silence.wav", NAN, NAN, "none"},
    // Dither alone is silence too: lifting it to -1 dBTP would add 85 dB of hiss.
    Standard{"dither-only.wav", NAN, INFINITY, "none"}),
    [](const auto& info) { return TestName(info.param.file); });

// The sounds of the other tests, several files in one run (measured at once
// on the machine's cores, printed in the order given): each within 0.2 LU of
// ffmpeg's reading.
TEST(Loudness, AgreesWithFfmpegOnTheTestsSounds) {
  const char* const files[] = {"tone.wav", "mic.wav", "flac-stereo-44k-to2.flac", "vorbis-mono-32k-to2.ogg",
                               "opus-stereo-48k-to2.opus", "mp3-mono-44k-to2.mp3"};
  std::wstring args;
  for (const char* file : files) args += L"\"" + Sounds() + std::wstring(file, file + std::strlen(file)) + L"\" ";
  const Measured m = Measure(L"loudness-many", args);
  ASSERT_EQ(0, m.exit) << m.text;
  ASSERT_EQ(std::size(files), m.files.size()) << m.text;
  for (size_t i = 0; i < std::size(files); ++i) {
    const std::wstring name(files[i], files[i] + std::strlen(files[i]));
    double ffmpeg = NAN;
    std::ifstream(Sounds() + name + L".ffmpeg-lufs") >> ffmpeg;
    ASSERT_FALSE(std::isnan(ffmpeg)) << files[i];
    const nlohmann::json& f = m.files[i];
    EXPECT_NE(std::string::npos, f["file"].get<std::string>().find(files[i])) << "out of order: " << f.dump();
    ASSERT_TRUE(f["lufs"].is_number()) << f.dump();
    std::printf("[ loudness ] %-26s %.2f LUFS, ffmpeg %.1f\n", files[i], f["lufs"].get<double>(), ffmpeg);
    EXPECT_NEAR(ffmpeg, f["lufs"].get<double>(), 0.2) << files[i];
  }
}

constexpr const wchar_t* kMic = L"{0.0.1.00000000}.{f0a70000-0000-4000-8000-00000000104d}";

struct Evened {
  const char* file;
  bool capped;  // the target's gain would lift the true peak past -1 dBTP
};

class Normalize : public ::testing::TestWithParam<Evened> {};

// quillon play --normalize into quillon-host: what the microphone got is at
// -16 LUFS to 0.5 LU, whether the file was 15 dB louder or softer; a file
// whose peaks would pass -1 dBTP there gets less gain, and its true peak
// arrives at -1 dBTP or under.
TEST_P(Normalize, ArrivesAtTheTargetWithItsTruePeakUnderTheCeiling) {
  const Evened& row = GetParam();
  const std::wstring name(row.file, row.file + std::strlen(row.file));
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 4", Sounds() + name, L"normalize-" + name, L"--normalize");
  ASSERT_EQ(0, run.playerExit) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  EXPECT_NE(std::string::npos, run.playerText.find("normalize: " + std::string(row.file))) << run.playerText;
  const Measured m = Measure(L"normalize-out-" + name, L"\"" + Scratch(L"normalize-" + name + L".wav") + L"\"");
  ASSERT_EQ(0, m.exit) << m.text;
  ASSERT_EQ(1u, m.files.size()) << m.text;
  const nlohmann::json& out = m.files[0];
  std::printf("[ evened   ] %-10s arrived at %s LUFS, true peak %s dBTP\n", row.file, out["lufs"].dump().c_str(),
              out["truePeak"].dump().c_str());
  ASSERT_TRUE(out["truePeak"].is_number()) << m.text;
  EXPECT_LE(out["truePeak"].get<double>(), -1.0 + 0.05);
  if (row.capped) {
    EXPECT_NE(std::string::npos, run.playerText.find("its true peak stays at -1 dBTP")) << run.playerText;
    EXPECT_GE(out["truePeak"].get<double>(), -1.5) << "far less gain than the ceiling allows";
  } else {
    ASSERT_TRUE(out["lufs"].is_number()) << m.text;
    EXPECT_NEAR(-16.0, out["lufs"].get<double>(), 0.5);
  }
}

INSTANTIATE_TEST_SUITE_P(Play, Normalize, ::testing::Values(Evened{"loud.wav", false}, Evened{"quiet.wav", false},
                                                            Evened{"peaky.wav", true}),
                         [](const auto& info) { return TestName(info.param.file); });

}  // namespace
}  // namespace quillon::test
