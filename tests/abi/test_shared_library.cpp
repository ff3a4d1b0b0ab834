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

std::set<std::string> exported_functions()
{
    std::set<std::string> names;
    std::istringstream lines(run(std::string("nm -D --defined-only ") + EJ_CMC_LIBRARY_PATH));
    std::string address, type, name;
    while (lines >> address >> type >> name)
        names.insert(name);
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
