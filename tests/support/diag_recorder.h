// Test support: records the drop-reason events of the calling thread while
// in scope.
#ifndef EJTEST_DIAG_RECORDER_H
#define EJTEST_DIAG_RECORDER_H

#include <algorithm>
#include <vector>

#include "cmc_diag.h"

namespace ejtest {

class DiagRecorder {
public:
    DiagRecorder() { cmc_diag_set_hook(&DiagRecorder::on_event, this); }
    ~DiagRecorder() { cmc_diag_set_hook(nullptr, nullptr); }
    DiagRecorder(const DiagRecorder &) = delete;
    DiagRecorder &operator=(const DiagRecorder &) = delete;

    const std::vector<cmc_diag_event> &events() const { return events_; }
    void clear() { events_.clear(); }
    bool saw(cmc_diag_reason reason) const
    {
        return std::any_of(events_.begin(), events_.end(),
                           [&](const cmc_diag_event &e) { return e.reason == reason; });
    }

private:
    static void on_event(const cmc_diag_event *event, void *user)
    {
        static_cast<DiagRecorder *>(user)->events_.push_back(*event);
    }
    std::vector<cmc_diag_event> events_;
};

} // namespace ejtest

#endif // EJTEST_DIAG_RECORDER_H
