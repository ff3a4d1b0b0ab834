// Heatmaps read back with libpng: size, a colour scale that spans the value
// range, and the pictures cmc-inspect --png writes for the sample module.
#include <gtest/gtest.h>

#include <png.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>
#include <tuple>

#include <unistd.h>

#include "file_io.h"
#include "heatmap_png.h"
#include "lsc_adaptation.h"
#include "pictures.h"
#include "tool_status.h"

namespace {

struct Picture {
    unsigned width = 0, height = 0;
    std::vector<std::vector<uint8_t>> rows; // RGB
};

Picture read_png(const std::string &path)
{
    Picture pic;
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        return pic;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png)) == 0) {
        png_init_io(png, f);
        png_read_info(png, info);
        if (png_get_color_type(png, info) == PNG_COLOR_TYPE_RGB && png_get_bit_depth(png, info) == 8) {
            pic.width = png_get_image_width(png, info);
            pic.height = png_get_image_height(png, info);
            pic.rows.assign(pic.height, std::vector<uint8_t>(3 * size_t(pic.width)));
            for (auto &row : pic.rows)
                png_read_row(png, row.data(), nullptr);
        }
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(f);
    return pic;
}

std::tuple<uint8_t, uint8_t, uint8_t> pixel(const Picture &p, unsigned x, unsigned y)
{
    const uint8_t *px = &p.rows[y][3 * size_t(x)];
    return {px[0], px[1], px[2]};
}

class Heatmaps : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir_ = std::filesystem::temp_directory_path() /
               ("ej_heatmaps_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(dir_);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string path(const std::string &name) const { return (dir_ / name).string(); }
    std::filesystem::path dir_;
};

TEST_F(Heatmaps, CellsFollowTheScaleAndTheRangeIsWritten)
{
    // 4 x 2 grid, values 0..7: cell (0,0) is the scale's low end, (3,1) its top.
    ejtool::Grid g{4, 2, {0, 1, 2, 3, 4, 5, 6, 7}};
    ejtool::write_heatmap_png(path("g.png"), g);
    const Picture p = read_png(path("g.png"));
    ASSERT_GT(p.width, 4u * 24);  // 24-pixel cells, then the bar and its labels
    ASSERT_GE(p.height, 100u);    // the bar is at least 100 pixels tall
    EXPECT_EQ(pixel(p, 8, 8), std::make_tuple(68, 1, 84));               // value 0
    EXPECT_EQ(pixel(p, 8 + 3 * 24, 8 + 24), std::make_tuple(253, 231, 37)); // value 7
    EXPECT_NE(pixel(p, 8 + 24, 8), pixel(p, 8 + 2 * 24, 8));
    // Black label pixels right of the bar: the range is written.
    unsigned black = 0;
    for (unsigned y = 0; y < p.height; ++y)
        for (unsigned x = 8 + 4 * 24 + 12 + 16; x < p.width; ++x)
            black += pixel(p, x, y) == std::make_tuple(0, 0, 0);
    EXPECT_GT(black, 20u);
}

TEST_F(Heatmaps, ConstantAndNanGridsStillDraw)
{
    ejtool::write_heatmap_png(path("c.png"), ejtool::Grid{2, 2, {5, 5, 5, NAN}});
    const Picture p = read_png(path("c.png"));
    ASSERT_EQ(p.rows.size(), p.height);
    EXPECT_EQ(pixel(p, 8 + 24, 8 + 24), std::make_tuple(128, 128, 128)); // NaN in grey
    EXPECT_NE(pixel(p, 8, 8), std::make_tuple(255, 255, 255));
}

TEST_F(Heatmaps, EmptyGridOrUnwritablePathIsAPictureError)
{
    for (const auto &[file, grid] : {std::make_pair(path("e.png"), ejtool::Grid{0, 3, {}}),
                                     std::make_pair(path("no/such/dir.png"), ejtool::Grid{1, 1, {1}})}) {
        try {
            ejtool::write_heatmap_png(file, grid);
            ADD_FAILURE() << file;
        } catch (const ejtool::ToolError &e) {
            EXPECT_EQ(e.code(), ejtool::kExitPicture);
        }
    }
}

TEST_F(Heatmaps, SampleModulePicturesHaveTheGridShapes)
{
    const ejtool::InspectSession session(ejtool::read_file(EJ_SAMPLES_DIR "/module.kelb"),
                                         ejtool::read_file(EJ_SAMPLES_DIR "/module.nvm"));
    const ejtool::LscAdaptation adaptation =
        ejtool::adapt_lens_shading(session.before(), session.result(), session.nvm());
    const std::vector<std::string> files =
        ejtool::write_pictures(session, adaptation.upscaled.get(), dir_.string());
    // 4 sets x 4 positions before, after, and of the ratios; 4 NVM tables x 4
    // planes; the id-30 map.
    ASSERT_EQ(files.size(), 3u * 16 + 16 + 1);
    std::set<std::string> names(files.begin(), files.end());
    for (const char *name : {"lsc_before_set0_pos00.png", "lsc_after_set3_pos11.png", "ratio_set2_pos10.png",
                             "nvm_table4_plane3.png", "map30.png"})
        EXPECT_EQ(names.count(name), 1u) << name;
    const Picture before = read_png(path("lsc_before_set0_pos00.png"));
    const Picture after = read_png(path("lsc_after_set0_pos00.png"));
    // A 17 x 13 grid draws in 18-pixel cells.
    EXPECT_GT(before.width, 17u * 18);
    EXPECT_EQ(before.height, 8u + 13 * 18 + 8);
    std::set<std::tuple<uint8_t, uint8_t, uint8_t>> colours;
    for (unsigned y = 8; y < 8 + 13 * 18; y += 18)
        for (unsigned x = 8; x < 8 + 17 * 18; x += 18)
            colours.insert(pixel(before, x, y));
    EXPECT_GT(colours.size(), 10u) << "a vignetting grid spans many colours";
    EXPECT_EQ(after.width, before.width);
    // The 9 x 7 map draws in 24-pixel cells (the largest).
    const Picture map = read_png(path("map30.png"));
    EXPECT_EQ(map.height, 8u + 7 * 24 + 8);
}

} // namespace
