// The sample module itself: its lens-shading records fit its NVM blob, so
// that the NVM lens-shading adaptation can run over a parse of the sample.
#include <gtest/gtest.h>

#include "byte_io.h"
#include "cmc_records.h"
#include "ej_nvm.h"
#include "kelb_builder.h"
#include "sample_module.h"

using namespace ejtest;

TEST(SampleModule, LensShadingRecordsFitTheNvmBlob)
{
    Bytes nvm = sample_nvm();
    const ej_data_block nvm_block{nvm.data(), uint32_t(nvm.size())};
    ej_nvm_data *handle = nullptr;
    ASSERT_EQ(ej_nvm_parse(&nvm_block, &handle), EJ_NVM_OK);
    const uint32_t tables = handle->lsc_table_count;
    const uint32_t nvm_w = handle->lsc_grid_width, nvm_h = handle->lsc_grid_height;
    ej_nvm_deinit(handle);

    auto run = parse(make_container(sample_records()));
    ASSERT_NE(run->parsed, nullptr);
    const cmc_lens_shading4x4 *ls = run->parsed->lens_shading4x4;
    const cmc_lens_shading_ratio *ratio = run->parsed->lens_shading_ratio;
    ASSERT_NE(ls, nullptr);
    ASSERT_NE(ratio, nullptr);
    EXPECT_EQ(ls->header.id, 28); // the id-10 record does not replace it
    EXPECT_EQ(ratio->header.id, 33);
    EXPECT_EQ(ls->num_sets, kLensShadingSets);
    EXPECT_EQ(ratio->num_sets, ls->num_sets);
    EXPECT_EQ(ls->grid_width, kLensShadingWidth);
    EXPECT_EQ(ls->grid_height, kLensShadingHeight);
    EXPECT_EQ(ratio->grid_width, ls->grid_width);
    EXPECT_EQ(ratio->grid_height, ls->grid_height);
    EXPECT_EQ(nvm_w, ls->grid_width);
    EXPECT_EQ(nvm_h, ls->grid_height);
    for (uint32_t k = 0; k < ratio->num_sets; ++k) {
        EXPECT_GE(ratio->sets[k].nvm_table_index, 1u) << k;
        EXPECT_LE(ratio->sets[k].nvm_table_index, tables) << k;
        EXPECT_EQ(ratio->sets[k].grid_bits, ls->sets[k].grid_bits) << k;
    }
    // The codes the correction takes: a 2 x 2 colour-filter pattern and a
    // channel order of 0 to 3, with the id-17 extension present.
    ASSERT_NE(run->parsed->rec_2, nullptr);
    ASSERT_NE(run->parsed->rec_17_ext, nullptr);
    EXPECT_LE(run->parsed->rec_2->cfa_pattern, 3u);
    EXPECT_LE(load_u16(run->parsed->rec_17 + 10), 3u);
}
