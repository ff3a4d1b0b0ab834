// The tool's model of the lens-shading adaptation: plane per pattern
// position, and the wrap count against a hand-computed case.
#include <gtest/gtest.h>

#include "cmc_records.h"
#include "file_io.h"
#include "inspect_session.h"
#include "lsc_adaptation.h"

namespace {

using Planes = std::array<int, 16>;

struct PatternCase {
    uint32_t cfa, order;
    Planes planes;
};

void PrintTo(const PatternCase &c, std::ostream *os)
{
    *os << "cfa " << c.cfa << " order " << c.order;
}

class PatternPlanes : public ::testing::TestWithParam<PatternCase> {};

TEST_P(PatternPlanes, MatchTheCorrectionTables)
{
    EXPECT_EQ(ejtool::pattern_planes(GetParam().cfa, GetParam().order), GetParam().planes);
}

constexpr int _ = -1;
INSTANTIATE_TEST_SUITE_P(
    Patterns, PatternPlanes,
    ::testing::Values(
        // cfa 2 with order 2 maps P0..P3 to (0,0), (0,1), (1,0), (1,1).
        PatternCase{2, 2, {0, 1, _, _, 2, 3, _, _, _, _, _, _, _, _, _, _}},
        // cfa 0 with order 3 maps P3..P0 to them.
        PatternCase{0, 3, {3, 2, _, _, 1, 0, _, _, _, _, _, _, _, _, _, _}},
        // cfa 129, order 3: row 0 Q2 Q2 Q3 Q3, row 1 Q0 Q0 Q1 Q1, Q j = P j.
        PatternCase{129, 3, {2, 2, 3, 3, 0, 0, 1, 1, _, _, _, _, _, _, _, _}},
        // cfa 256, order 3: Q1 Q3 Q2 Q3 / Q0 - Q0 - / Q2 Q3 Q1 Q3 / Q0 - Q0 -.
        PatternCase{256, 3, {1, 3, 2, 3, 0, _, 0, _, 2, 3, 1, 3, 0, _, 0, _}},
        // cfa 263, order 0 (Q j = P 3-j): - Q0 - Q0 / Q3 Q2 Q3 Q1 / ...
        PatternCase{263, 0, {_, 3, _, 3, 0, 1, 0, 2, _, 3, _, 3, 0, 2, 0, 1}},
        // Unsupported codes: no plane anywhere.
        PatternCase{4, 3, {_, _, _, _, _, _, _, _, _, _, _, _, _, _, _, _}},
        PatternCase{132, 3, {_, _, _, _, _, _, _, _, _, _, _, _, _, _, _, _}},
        PatternCase{0, 4, {_, _, _, _, _, _, _, _, _, _, _, _, _, _, _, _}}));

// The sample module's last ratio set holds Q0.16 ratios (0.62 to 0.72), whose
// products with gains of 1.0 and more reach 65536 towards the corners. With
// gains below 2, a wrapped product leaves a sample below its ratio sample,
// which no product of a gain of at least 1 does otherwise: the wrap count can
// be read off the two parse results alone.
TEST(LscAdaptation, SampleWrapsCountedWhereTheCorrectedSampleFellBelowItsRatio)
{
    const ejtool::InspectSession session(ejtool::read_file(EJ_SAMPLES_DIR "/module.kelb"),
                                         ejtool::read_file(EJ_SAMPLES_DIR "/module.nvm"));
    const ejtool::LscAdaptation a =
        ejtool::adapt_lens_shading(session.before(), session.result(), session.nvm());
    ASSERT_TRUE(a.upscaled);
    ASSERT_EQ(a.report.at("ran"), true) << a.report.dump();
    const cmc_lens_shading4x4 &after = *session.result()->lens_shading4x4;
    const cmc_lens_shading_ratio &ratio = *session.result()->lens_shading_ratio;
    const size_t n = size_t(after.grid_width) * after.grid_height;
    uint32_t total_wrapped = 0;
    ASSERT_EQ(a.report.at("sets").size(), after.num_sets);
    for (const auto &set : a.report.at("sets")) {
        const uint32_t s = set.at("set").get<uint32_t>();
        ASSERT_EQ(set.at("positions").size(), 4u);
        for (const auto &p : set.at("positions")) {
            const int pos = p.at("position")[0].get<int>() * 4 + p.at("position")[1].get<int>();
            uint32_t below = 0;
            for (size_t k = 0; k < n; ++k)
                below += after.sets[s].grids[pos][k] < ratio.sets[s].grids[pos][k];
            EXPECT_EQ(p.at("wrapped").get<uint32_t>(), below) << "set " << s << " position " << pos;
            EXPECT_EQ(p.at("differs_from_parse"), 0);
            EXPECT_GE(p.at("gain_min").get<double>(), 1.0);
            EXPECT_LT(p.at("gain_max").get<double>(), 2.0);
            total_wrapped += below;
            if (s < 3) {
                EXPECT_EQ(below, 0u);
            }
        }
    }
    EXPECT_GT(total_wrapped, 0u);
}

TEST(LscAdaptation, NothingToAdaptWithoutRatioGrids)
{
    const ejtool::InspectSession session(ejtool::read_file(EJ_SAMPLES_DIR "/module.kelb"),
                                         ejtool::read_file(EJ_SAMPLES_DIR "/module.nvm"));
    cmc_parsed_data copy = *session.result();
    copy.lens_shading_ratio = nullptr;
    const ejtool::LscAdaptation a = ejtool::adapt_lens_shading(session.before(), &copy, session.nvm());
    EXPECT_EQ(a.report.at("ran"), false);
    EXPECT_FALSE(a.upscaled);
}

} // namespace
