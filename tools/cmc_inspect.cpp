// cmc-inspect: shows what the parser makes of a tuning container and,
// optionally, a module's NVM blob: every filled slot summarised, why records
// were dropped, how the lens shading was adapted to the module (gain ranges
// and wrapped samples), as text or JSON, and heatmaps of the grids.
#include <cstdio>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "ej_cmc_version.h"
#include "file_io.h"
#include "inspect_report.h"
#include "lsc_adaptation.h"
#include "pictures.h"
#include "tool_status.h"

namespace {

constexpr const char *kExitCodes = R"(Exit codes:
  0  inspected (the container was accepted)
  2  bad command line
  3  a file could not be read
  4  the parser rejected the container (the report says which check failed)
  5  the NVM library rejected the NVM blob
  7  a picture could not be written
  8  --lint: a record was dropped, shortened or ignored, or a lens-shading
     sample wrapped)";

struct Options {
    std::string container;
    std::optional<std::string> nvm;
    bool json = false;
    std::optional<std::string> png_dir;
    bool lint = false;
};

int run(const Options &opt)
{
    using namespace ejtool;
    std::vector<uint8_t> container = read_file(opt.container);
    std::optional<std::vector<uint8_t>> nvm;
    if (opt.nvm)
        nvm = read_file(*opt.nvm);
    const InspectSession session(std::move(container), std::move(nvm));

    LscAdaptation adaptation;
    if (session.has_nvm() && session.nvm() != nullptr)
        adaptation = adapt_lens_shading(session.before(), session.result(), session.nvm());
    const Json report = build_report(session, base_name(opt.container),
                                     opt.nvm ? base_name(*opt.nvm) : std::string(),
                                     session.has_nvm() ? adaptation.report : Json());
    const std::string out =
        opt.json ? report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : render_text(report);
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fflush(stdout);

    if (session.result() == nullptr)
        throw ToolError(kExitContainerRejected,
                        opt.container + ": container rejected: " + rejection_text(session));
    if (session.has_nvm() && session.nvm() == nullptr)
        throw ToolError(kExitNvmRejected, *opt.nvm + ": NVM blob rejected by the NVM library (code " +
                                              std::to_string(session.nvm_status()) + ")");
    // The correction does not saturate: say so where it bit.
    uint64_t wrapped = 0;
    if (adaptation.report.is_object() && adaptation.report.contains("sets"))
        for (const Json &set : adaptation.report["sets"])
            if (set.contains("positions"))
                for (const Json &p : set["positions"])
                    wrapped += p["wrapped"].get<uint64_t>();
    if (wrapped > 0)
        std::fprintf(stderr,
                     "cmc-inspect: warning: %llu lens-shading samples exceeded 65535 and wrapped "
                     "(see \"wrapped\" per set and position)\n",
                     static_cast<unsigned long long>(wrapped));
    const size_t dropped = report.contains("drops") ? report["drops"].size() : 0;
    if (opt.lint && (dropped > 0 || wrapped > 0)) {
        // Lint findings come after the pictures so that a failing check still
        // leaves them to look at.
        if (opt.png_dir)
            write_pictures(session, adaptation.upscaled.get(), *opt.png_dir);
        throw ToolError(kExitLintFindings, "lint: " + std::to_string(dropped) +
                                               " record event(s) (dropped, shortened or ignored), " +
                                               std::to_string(wrapped) +
                                               " lens-shading sample(s) wrapped");
    }
    if (opt.png_dir) {
        const std::vector<std::string> files =
            write_pictures(session, adaptation.upscaled.get(), *opt.png_dir);
        std::fprintf(stderr, "%zu pictures in %s\n", files.size(), opt.png_dir->c_str());
    }
    return kExitOk;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Shows what the CMC parser makes of a tuning container (and a module's NVM blob).",
                 "cmc-inspect"};
    app.footer(kExitCodes);
    Options opt;
    app.add_option("CONTAINER", opt.container, "tuning container (kelb) to parse")->required();
    app.add_option("--nvm", opt.nvm, "the module's NVM blob: adapt the lens shading to it");
    app.add_flag("--json", opt.json, "print the report as JSON (schema cmc-inspect, docs/inspect-json.md)");
    app.add_option("--png", opt.png_dir, "write heatmaps of the grids into this directory");
    app.add_flag("--lint", opt.lint,
                 "exit with 8 when any record was dropped, shortened or ignored, or a lens-shading sample wrapped");
    app.set_version_flag("--version", std::string("cmc-inspect (ej_cmc_parser) ") + EJ_CMC_PARSER_VERSION_STRING);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        std::fprintf(stderr, "cmc-inspect: %s\nRun with --help for usage.\n", e.what());
        return ejtool::kExitUsage;
    }
    try {
        return run(opt);
    } catch (const ejtool::ToolError &e) {
        std::fprintf(stderr, "cmc-inspect: %s\n", e.what());
        return e.code();
    }
}
