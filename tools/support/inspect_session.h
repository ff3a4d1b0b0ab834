// cmc-inspect: one inspection of a container (and optionally an NVM blob).
// Parses through the library's entry points while a drop-reason hook
// collects why records were dropped, and keeps what the report and the
// pictures need: the result with the NVM data, the result without it (the
// lens-shading grids before the adaptation), and the parsed NVM data.
#ifndef EJ_TOOL_INSPECT_SESSION_H
#define EJ_TOOL_INSPECT_SESSION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "cmc_diag.h"
#include "ej_cmc_parser.h"
#include "ej_nvm.h"

namespace ejtool {

struct ParsedFree {
    void operator()(cmc_parsed_data *p) const { ej_cmc_parser_deinit(p); }
};
struct NvmFree {
    void operator()(ej_nvm_data *p) const { ej_nvm_deinit(p); }
};
using ParsedPtr = std::unique_ptr<cmc_parsed_data, ParsedFree>;
using NvmPtr = std::unique_ptr<ej_nvm_data, NvmFree>;

class InspectSession {
public:
    // Parses at once. Without NVM data, before() and result() are the same
    // parse.
    InspectSession(std::vector<uint8_t> container, std::optional<std::vector<uint8_t>> nvm);

    const std::vector<uint8_t> &container() const { return container_; }
    bool has_nvm() const { return nvm_bytes_.has_value(); }
    size_t nvm_size() const { return nvm_bytes_ ? nvm_bytes_->size() : 0; }

    // Null when the container was rejected.
    const cmc_parsed_data *result() const { return result_.get(); }
    const cmc_parsed_data *before() const { return before_ ? before_.get() : result_.get(); }
    // The events of the parse behind result(), then those of the id-722
    // summary (ej_kelb_others_parser_init).
    const std::vector<cmc_diag_event> &drops() const { return drops_; }

    // ej_nvm_parse's status and handle (null unless it succeeded).
    int nvm_status() const { return nvm_status_; }
    const ej_nvm_data *nvm() const { return nvm_.get(); }

private:
    std::vector<uint8_t> container_;
    std::optional<std::vector<uint8_t>> nvm_bytes_;
    ej_data_block container_block_{};
    ej_data_block nvm_block_{};
    ParsedPtr result_;
    ParsedPtr before_;
    std::vector<cmc_diag_event> drops_;
    int nvm_status_ = 0;
    NvmPtr nvm_;
};

// Name of a drop reason ("CMC_DIAG_TOO_SHORT"); "reason N" for an unknown one.
std::string diag_reason_name(cmc_diag_reason reason);

} // namespace ejtool

#endif // EJ_TOOL_INSPECT_SESSION_H
