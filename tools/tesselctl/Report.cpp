#include "tesselctl/Report.h"

#include "tesselctl/ExitStatus.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {

int Report(const Result<Answer>& outcome, std::string_view command) {
    if (!outcome.Ok()) {
        Complain(outcome.GetProblem().text);
        return ExitStatusOf(outcome.GetProblem());
    }
    Say(OutputOf(outcome.Value()));
    const std::string complaint = ComplaintOf(outcome.Value(), command);
    if (!complaint.empty()) Complain(complaint);
    return ExitStatusOf(outcome.Value());
}

}  // namespace tesselctl
