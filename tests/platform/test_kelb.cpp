// The container-parser stand-in checks the record header.
#include <gtest/gtest.h>

#include "ej_kelb_parser.h"
#include "kelb_builder.h"

using namespace ejtest;

TEST(KelbParser, ChecksTheRecordHeader)
{
    EXPECT_EQ(ej_kelb_parse_record(nullptr), EJ_KELB_ERR_NULL);
    Bytes short_size = make_record_with_size(9, 100, {}, 7);
    EXPECT_EQ(ej_kelb_parse_record(short_size.data()), EJ_KELB_ERR_TOO_SHORT);
    Bytes header_only = make_record(9, 100, {});
    EXPECT_EQ(ej_kelb_parse_record(header_only.data()), EJ_KELB_OK);
}
