// The down-mix rule, one frame per row: which input channel lands where, with
// which weight.
#include "audio/ChannelMap.h"

#include <gtest/gtest.h>

#include <vector>

namespace quillon::audio {
namespace {

constexpr float kSide3 = 1.0f + 0.70710678f;             // FL + FC
constexpr float kSide6 = 1.0f + 2 * 0.70710678f;         // FL + FC + BL
constexpr float kSide8 = 1.0f + 3 * 0.70710678f;         // FL + FC + BL + SL

struct MapRow {
  const char* name;
  uint32_t from, to;
  std::vector<float> in, out;  // one frame each
};

class ChannelMapRule : public ::testing::TestWithParam<MapRow> {};

TEST_P(ChannelMapRule, MapsOneFrame) {
  const MapRow& row = GetParam();
  // Two frames: the row's and its negative, so that frames never mix.
  std::vector<float> in = row.in;
  for (float v : row.in) in.push_back(-v);
  std::vector<float> out(2 * row.to, 99.0f);
  ChannelMap(row.from, row.to).Apply(in.data(), 2, out.data());
  for (uint32_t c = 0; c < row.to; ++c) {
    EXPECT_NEAR(row.out[c], out[c], 1e-6f) << "channel " << c;
    EXPECT_NEAR(-row.out[c], out[row.to + c], 1e-6f) << "second frame, channel " << c;
  }
}

INSTANTIATE_TEST_SUITE_P(Rule, ChannelMapRule, ::testing::Values(
    MapRow{"SameCountUnchanged", 2, 2, {0.1f, 0.2f}, {0.1f, 0.2f}},
    MapRow{"MonoToEveryChannel", 1, 6, {0.5f}, {0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f}},
    MapRow{"StereoToMonoIsTheMean", 2, 1, {0.2f, 0.6f}, {0.4f}},
    MapRow{"CentreToBothSides", 3, 2, {0, 0, 1}, {0.70710678f / kSide3, 0.70710678f / kSide3}},
    MapRow{"FrontLeftOfSix", 6, 2, {1, 0, 0, 0, 0, 0}, {1 / kSide6, 0}},
    MapRow{"BackRightOfSix", 6, 2, {0, 0, 0, 0, 0, 1}, {0, 0.70710678f / kSide6}},
    MapRow{"LfeLeftOut", 6, 2, {0, 0, 0, 1, 0, 0}, {0, 0}},
    MapRow{"FullScaleStaysFullScale", 6, 2, {1, 1, 1, 1, 1, 1}, {1, 1}},
    MapRow{"SideLeftOfEight", 8, 2, {0, 0, 0, 0, 0, 0, 1, 0}, {0.70710678f / kSide8, 0}},
    MapRow{"PastTheEighthLeftOut", 10, 2, {0, 0, 0, 0, 0, 0, 0, 0, 1, 1}, {0, 0}},
    MapRow{"SixToMono", 6, 1, {1, 0, 1, 0, 0, 0}, {0.5f * (1 + 2 * 0.70710678f) / kSide6}},
    MapRow{"StereoIntoSixInOrder", 2, 6, {0.3f, 0.4f}, {0.3f, 0.4f, 0, 0, 0, 0}},
    MapRow{"EightIntoSixInOrder", 8, 6, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillon::audio
