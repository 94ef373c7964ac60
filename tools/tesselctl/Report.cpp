#include "tesselctl/Report.h"

#include "tesselctl/ExitStatus.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {

int Report(const Result<Answer>& outcome, std::string_view command) {
    if (!outcome.Ok()) {
        Complain(outcome.GetProblem().text);
        return ExitStatusOf(outcome.GetProblem());
    }
    std::string output = OutputOf(outcome.Value());
    // All but the line feed at the end.
    if (!output.empty() && OutputIsSeen())
        output = Printable(output.substr(0, output.size() - 1)) + '\n';
    Say(output);
    const std::string complaint = ComplaintOf(outcome.Value(), command);
    if (!complaint.empty()) Complain(complaint);
    return ExitStatusOf(outcome.Value());
}

}  // namespace tesselctl
