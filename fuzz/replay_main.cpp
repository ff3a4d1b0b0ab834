// Replays corpus files through a fuzz target without libFuzzer: every file
// named on the command line, and every file inside a directory named there,
// is read and handed to LLVMFuzzerTestOneInput once. Built with the ordinary
// compiler in every test build, so that each committed input (seeds and past
// findings alike) runs under the optimised and the sanitizer builds.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_input.h"

namespace fs = std::filesystem;

int main(int argc, char **argv)
{
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path arg(argv[i]);
        if (fs::is_directory(arg)) {
            for (const auto &entry : fs::directory_iterator(arg))
                if (entry.is_regular_file())
                    files.push_back(entry.path());
        } else {
            files.push_back(arg);
        }
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR_OR_FILE...: no input found\n", argv[0]);
        return 2;
    }
    for (const fs::path &file : files) {
        std::ifstream stream(file, std::ios::binary);
        if (!stream) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 2;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)),
                                      std::istreambuf_iterator<char>());
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
