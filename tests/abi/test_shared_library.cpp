// The shipped shared library as a camera stack sees it: the exported
// symbols, the dynamic dependencies, and platform calls that a client can
// interpose.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include "ej_nvm.h"
#include "kelb_builder.h"
#include "nvm_writer.h"
#include "sample_module.h"

using namespace ejtest;

namespace {

std::string run(const std::string &command)
{
    std::string out;
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return out;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0)
        out.append(buf.data(), n);
    pclose(pipe);
    return out;
}

// Defined dynamic symbols as "name@@version" (nm prints the version node
// itself as an absolute symbol: it is left out).
std::set<std::string> versioned_exports()
{
    std::set<std::string> names;
    std::istringstream lines(run(std::string("nm -D --defined-only ") + EJ_CMC_LIBRARY_PATH));
    std::string address, type, name;
    while (lines >> address >> type >> name)
        if (type != "A")
            names.insert(name);
    return names;
}

std::set<std::string> exported_functions()
{
    std::set<std::string> names;
    for (const std::string &versioned : versioned_exports())
        names.insert(versioned.substr(0, versioned.find('@')));
    return names;
}

// Calls seen by the interposed NVM functions below.
int g_nvm_parse_calls = 0;
int g_nvm_deinit_calls = 0;

} // namespace

// A client's own definitions of the NVM library's functions take precedence
// over the library's for the parser's calls; they count and pass on.
extern "C" __attribute__((visibility("default"))) int ej_nvm_parse(const ej_data_block *nvm,
                                                                 ej_nvm_data **handle)
{
    ++g_nvm_parse_calls;
    using fn = int (*)(const ej_data_block *, ej_nvm_data **);
    static fn next = reinterpret_cast<fn>(dlsym(RTLD_NEXT, "ej_nvm_parse"));
    return next(nvm, handle);
}

extern "C" __attribute__((visibility("default"))) void ej_nvm_deinit(ej_nvm_data *handle)
{
    ++g_nvm_deinit_calls;
    using fn = void (*)(ej_nvm_data *);
    static fn next = reinterpret_cast<fn>(dlsym(RTLD_NEXT, "ej_nvm_deinit"));
    next(handle);
}

TEST(SharedLibrary, ExportsExactlyThePublicFunctions)
{
    const std::set<std::string> expected = {
        "cmc_parse",
        "ej_cmc_parser_deinit",
        "ej_cmc_parser_init",
        "ej_cmc_parser_init_v1",
        "ej_kelb_others_parser_init",
        // Nearest-neighbour, bilinear and area-averaging kernels.
        "crop_resize_2d_array_uint16",
        "image_downscale_32f_to_u16p10",
        "image_downscale_nearest_neighbor_int32",
        "image_downscale_u16_to_u16",
        "image_nearest_neighbor_scale_interleaved_int32",
        "image_nearest_neighbor_scale_uint32",
        "image_upscale_nearest_neighbor_uint16",
        "resize_2d_array_float",
        "resize_2d_array_int32",
        "resize_2d_array_uint16",
        "resize_2d_array_uint16_v1",
        "resize_2d_array_uint32",
        "resize_2d_array_uint8",
        "resize_2d_array_uint8_v1",
        // Bicubic kernels and lens-shading tables.
        "bicubic_resize_32f_to_u16p10",
        "bicubic_resize_u16_to_u16",
        "compute_upscaled_lsc_tables_bicubic",
        "deinit_computed_upscale_lsc_tables",
        "image_bicubic_upscale_uint16_to_float",
        "image_bicubic_upscale_uint8_to_float",
        // Linear algebra, the polynomial lens-shading tables and the ratio correction.
        "compute_upscaled_lsc_tables_polynom4th",
        "lsc_polynomial_upscale_float",
        "lu_decomposition",
        "lu_decomposition_lsc",
        "lu_decomposition_m",
        "mul_mm",
        "mul_mm_lsc",
        "mul_mv",
        "mul_mv_lsc",
        "ratio_based_sample_to_sample_correction",
        "transpose_m",
        // release routines of the decoded records
        "cmc_cbd_deinit",
        "cmc_geometric_distortion2_wfov_free",
        "cmc_lens_shading4x4_deinit",
        "cmc_lens_shading_ratio_deinit",
        "cmc_pipe_compand_decompand_deinit",
        "cmc_sensor_decompand_deinit",
    };
    EXPECT_EQ(exported_functions(), expected);
}

TEST(SharedLibrary, EveryExportCarriesTheVersionNode)
{
    const std::set<std::string> versioned = versioned_exports();
    ASSERT_FALSE(versioned.empty());
    for (const std::string &name : versioned) {
        const std::size_t at = name.find("@@");
        ASSERT_NE(at, std::string::npos) << name << " has no default version";
        EXPECT_EQ(name.substr(at + 2), "EJ_CMC_PARSER_0") << name;
    }
}

TEST(SharedLibrary, NamesItselfAndItsPlatformLibraries)
{
    const std::string dynamic = run(std::string("readelf -d ") + EJ_CMC_LIBRARY_PATH);
    EXPECT_NE(dynamic.find("Library soname: [libej_cmc_parser-vantor.so.0]"), std::string::npos);
    for (const char *needed : {"libej_log-vantor.so.0", "libej_nvm-vantor.so.0",
                               "libej_kelb_parser-vantor.so.0"})
        EXPECT_NE(dynamic.find(std::string("Shared library: [") + needed + "]"), std::string::npos)
            << needed;
}

TEST(SharedLibrary, NvmHandleIsReleasedExactlyOnceWhenOneWasMade)
{
    const Bytes container = make_container({make_record(5, 100, Bytes(8, 1))});
    ejnvm::NvmBlob blob;
    blob.map = ejnvm::MapSection{};
    const Bytes good = ejnvm::write_nvm(blob);

    struct Case {
        Bytes nvm;
        int parses;
        int deinits;
    };
    const Case cases[] = {
        {good, 1, 1},            // a handle came back: released once
        {Bytes{1, 2, 3, 4}, 1, 0}, // the NVM library made no handle: nothing to release
        {{}, 0, 0},              // no NVM data: the NVM library is not called
    };
    for (const Case &c : cases) {
        g_nvm_parse_calls = g_nvm_deinit_calls = 0;
        auto result = parse(container, c.nvm);
        ASSERT_NE(result->parsed, nullptr);
        EXPECT_EQ(g_nvm_parse_calls, c.parses);
        EXPECT_EQ(g_nvm_deinit_calls, c.deinits);
    }
}

TEST(SharedLibrary, NvmHandleIsReleasedOnceWhetherTheLensShadingStepRunsOrNot)
{
    // The sample module carries grids and ratio grids (the step runs); the
    // same records without the ratio record leave the step nothing to do.
    std::vector<Bytes> without_ratios;
    for (const Bytes &r : sample_records())
        if (get_u16(r.data() + 6) != 33)
            without_ratios.push_back(r);
    for (const std::vector<Bytes> &records : {sample_records(), without_ratios}) {
        g_nvm_parse_calls = g_nvm_deinit_calls = 0;
        auto result = parse(make_container(records), sample_nvm());
        ASSERT_NE(result->parsed, nullptr);
        EXPECT_EQ(g_nvm_parse_calls, 1);
        EXPECT_EQ(g_nvm_deinit_calls, 1);
    }
}

// The container-parser library's function, interposed the same way: it
// answers a forced code when a test sets one, and passes on otherwise.
namespace {
int g_kelb_forced_code = 0;
}

extern "C" __attribute__((visibility("default"))) int ej_kelb_parse_record(void *record)
{
    if (g_kelb_forced_code != 0)
        return g_kelb_forced_code;
    using fn = int (*)(void *);
    static fn next = reinterpret_cast<fn>(dlsym(RTLD_NEXT, "ej_kelb_parse_record"));
    return next(record);
}

TEST(SharedLibrary, AContainerParserCodeComesBackFromCmcParse)
{
    Parsed parsed = empty_parsed();
    const Bytes rec9 = make_record(9, 100, Bytes(16, 9));
    const uint8_t *kept = nullptr;
    ASSERT_EQ(decode(parsed.get(), rec9, &kept), 0u);
    ASSERT_EQ(parsed->rec_9, kept);
    g_kelb_forced_code = 5;
    EXPECT_EQ(decode(parsed.get(), rec9), 5u); // the copy is released by decode
    EXPECT_EQ(parsed->rec_9, kept);
    // Through the walk: the record is dropped and the walk goes on.
    auto run = parse(make_container({rec9, make_record(5, 100, Bytes(8, 5))}));
    g_kelb_forced_code = 0;
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_EQ(run->parsed->rec_9, nullptr);
    EXPECT_NE(run->parsed->rec_5, nullptr);
}
