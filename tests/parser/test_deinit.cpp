// Release of a parse result. The sanitizer build turns every leak or double
// release here into a failure.
#include <gtest/gtest.h>

#include "kelb_builder.h"
#include "sample_module.h"
#include "slots.h"

using namespace ejtest;

TEST(Deinit, ReleasesEverySlotFilledByAFullContainer)
{
    auto run = parse(make_container(sample_records()));
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_EQ(filled_slots(run->parsed.get()), sample_filled_slots());
    run->parsed.reset(); // released here; the sanitizers check the rest
}

TEST(Deinit, LeavesTheCallersDescriptorAlone)
{
    Bytes c = make_container({});
    ej_data_block block{c.data(), uint32_t(c.size())};
    cmc_parsed_data *parsed = ej_cmc_parser_init(&block);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(parsed->container, &block);
    ej_cmc_parser_deinit(parsed);
    ej_cmc_parser_deinit(nullptr); // a no-op
    EXPECT_EQ(block.data, c.data());
    EXPECT_EQ(block.size, c.size());
}

TEST(Deinit, ReleasesAHandFilledResultWithViewsAndEmptySlots)
{
    // A caller that fills a result by decoding records one by one releases it
    // the same way.
    Parsed parsed = empty_parsed();
    for (const Bytes &r : sample_records()) {
        if (get_u16(r.data() + 6) < 64) {
            ASSERT_EQ(decode(parsed.get(), r), CMC_PARSE_OK);
        }
    }
    // No slot 64, and no slot 57: only the parse entry builds the id-34 form.
    EXPECT_EQ(filled_slots(parsed.get()).size(), sample_filled_slots().size() - 2);
    parsed.reset();
}
