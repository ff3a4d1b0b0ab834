#include "inspect_session.h"

#include <string>

namespace ejtool {

namespace {

// Collects the calling thread's drop events while in scope.
class DropCollector {
public:
    explicit DropCollector(std::vector<cmc_diag_event> *out) : out_(out)
    {
        cmc_diag_set_hook(&DropCollector::on_event, this);
    }
    ~DropCollector() { cmc_diag_set_hook(nullptr, nullptr); }
    DropCollector(const DropCollector &) = delete;
    DropCollector &operator=(const DropCollector &) = delete;

private:
    static void on_event(const cmc_diag_event *event, void *user)
    {
        static_cast<DropCollector *>(user)->out_->push_back(*event);
    }
    std::vector<cmc_diag_event> *out_;
};

} // namespace

InspectSession::InspectSession(std::vector<uint8_t> container,
                               std::optional<std::vector<uint8_t>> nvm)
    : container_(std::move(container)), nvm_bytes_(std::move(nvm))
{
    container_block_ = ej_data_block{container_.data(), uint32_t(container_.size())};
    if (nvm_bytes_) {
        nvm_block_ = ej_data_block{nvm_bytes_->data(), uint32_t(nvm_bytes_->size())};
        ej_nvm_data *handle = nullptr;
        nvm_status_ = ej_nvm_parse(&nvm_block_, &handle);
        nvm_.reset(handle);
        // The grids as tuned, for the before/after comparison.
        before_.reset(ej_cmc_parser_init(&container_block_));
    }
    DropCollector collect(&drops_);
    result_.reset(ej_cmc_parser_init_v1(&container_block_, nvm_bytes_ ? &nvm_block_ : nullptr));
    if (result_)
        ej_kelb_others_parser_init(&container_block_, result_.get());
}

std::string diag_reason_name(cmc_diag_reason reason)
{
    switch (reason) {
    case CMC_DIAG_CONTAINER_NULL: return "CMC_DIAG_CONTAINER_NULL";
    case CMC_DIAG_CONTAINER_SIZE_FIELD: return "CMC_DIAG_CONTAINER_SIZE_FIELD";
    case CMC_DIAG_CONTAINER_CHECKSUM: return "CMC_DIAG_CONTAINER_CHECKSUM";
    case CMC_DIAG_CONTAINER_NO_MEMORY: return "CMC_DIAG_CONTAINER_NO_MEMORY";
    case CMC_DIAG_WALK_RECORD_TOO_SMALL: return "CMC_DIAG_WALK_RECORD_TOO_SMALL";
    case CMC_DIAG_WALK_RECORD_PAST_END: return "CMC_DIAG_WALK_RECORD_PAST_END";
    case CMC_DIAG_COPY_NO_MEMORY: return "CMC_DIAG_COPY_NO_MEMORY";
    case CMC_DIAG_NO_DECODER: return "CMC_DIAG_NO_DECODER";
    case CMC_DIAG_PARSER_REJECTED: return "CMC_DIAG_PARSER_REJECTED";
    case CMC_DIAG_TOO_SHORT: return "CMC_DIAG_TOO_SHORT";
    case CMC_DIAG_PART_TOO_SHORT: return "CMC_DIAG_PART_TOO_SHORT";
    case CMC_DIAG_UNSUPPORTED_VERSION: return "CMC_DIAG_UNSUPPORTED_VERSION";
    case CMC_DIAG_NO_MEMORY: return "CMC_DIAG_NO_MEMORY";
    case CMC_DIAG_BAD_STRING: return "CMC_DIAG_BAD_STRING";
    case CMC_DIAG_SUPERSEDED: return "CMC_DIAG_SUPERSEDED";
    case CMC_DIAG_REPLACED_EARLIER: return "CMC_DIAG_REPLACED_EARLIER";
    case CMC_DIAG_BAD_FIELD: return "CMC_DIAG_BAD_FIELD";
    case CMC_DIAG_BAD_COUNT: return "CMC_DIAG_BAD_COUNT";
    }
    return "reason " + std::to_string(uint32_t(reason));
}

} // namespace ejtool
