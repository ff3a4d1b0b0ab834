// Test support: the channel-order and colour-filter pattern tables written
// out as the format states them, independent of the library's own tables.
#ifndef EJTEST_CFA_PATTERN_TABLE_H
#define EJTEST_CFA_PATTERN_TABLE_H

#include <cstdint>
#include <string>
#include <vector>

namespace ejtest {

// Channel order m: Qj is plane P[kChannelOrder[m][j]].
constexpr int kChannelOrder[4][4] = {{3, 2, 1, 0}, {2, 3, 0, 1}, {1, 0, 3, 2}, {0, 1, 2, 3}};

// The Q number at every grid position (row * 4 + column) of a pattern code,
// -1 where the position has no plane.
inline std::vector<int> pattern_q(uint32_t cfa)
{
    // 4 x 2 (128 ... 131) and 4 x 4 (256 ... 263) tables, rows split by '|'.
    static const char *const wide[4] = {"3322|1100", "2233|0011", "1100|3322", "0011|2233"};
    static const char *const quad[8] = {
        "1323|0-0-|2313|0-0-", "3231|-0-0|3132|-0-0", "2313|0-0-|1323|0-0-",
        "3132|-0-0|3231|-0-0", "0-0-|2313|0-0-|1323", "-0-0|3132|-0-0|3231",
        "0-0-|1323|0-0-|2313", "-0-0|3231|-0-0|3132"};
    std::vector<int> q(16, -1);
    if (cfa <= 3) {
        // With the identity channel order (3), (r, c) holds P((2r + c) XOR code).
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 2; ++c)
                q[r * 4 + c] = (2 * r + c) ^ int(cfa) ^ 3;
        return q;
    }
    const std::string rows = cfa < 256 ? wide[cfa - 128] : quad[cfa - 256];
    int r = 0, c = 0;
    for (char ch : rows) {
        if (ch == '|') {
            ++r;
            c = 0;
            continue;
        }
        q[r * 4 + c++] = ch == '-' ? -1 : ch - '0';
    }
    return q;
}

} // namespace ejtest

#endif // EJTEST_CFA_PATTERN_TABLE_H
