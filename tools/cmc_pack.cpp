// cmc-pack: builds a tuning container (or, with --nvm, an NVM blob) from a
// JSON description (docs/pack-description.md).
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include "description.h"
#include "ej_cmc_version.h"
#include "file_io.h"
#include "tool_status.h"

namespace {

constexpr const char *kExitCodes = R"(Exit codes:
  0  written
  2  bad command line
  3  a file could not be read or written
  6  the description is malformed (the message gives the file, the JSON path and what was expected))";

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Builds a tuning container, or an NVM blob, from a JSON description.", "cmc-pack"};
    app.footer(kExitCodes);
    std::string input, output;
    bool nvm = false;
    app.add_option("DESCRIPTION", input, "JSON description (format kelb-container, or nvm-blob with --nvm)")
        ->required();
    app.add_option("-o,--output", output, "file to write")->required();
    app.add_flag("--nvm", nvm, "build an NVM blob in the stand-in NVM library's format");
    app.set_version_flag("--version", std::string("cmc-pack (ej_cmc_parser) ") + EJ_CMC_PARSER_VERSION_STRING);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        std::fprintf(stderr, "cmc-pack: %s\nRun with --help for usage.\n", e.what());
        return ejtool::kExitUsage;
    }
    try {
        const std::string text = ejtool::read_text_file(input);
        const std::vector<uint8_t> bytes =
            nvm ? ejtool::pack_nvm(text, input) : ejtool::pack_container(text, input);
        ejtool::write_file(output, bytes);
        return ejtool::kExitOk;
    } catch (const ejtool::ToolError &e) {
        std::fprintf(stderr, "cmc-pack: %s\n", e.what());
        return e.code();
    } catch (const std::exception &e) {
        // The NVM writer's own consistency checks.
        std::fprintf(stderr, "cmc-pack: %s: %s\n", input.c_str(), e.what());
        return ejtool::kExitBadDescription;
    }
}
