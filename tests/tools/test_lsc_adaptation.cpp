// The tool's model of the lens-shading adaptation: plane per pattern
// position, and the wrap count against a hand-computed case.
#include <gtest/gtest.h>

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

} // namespace
