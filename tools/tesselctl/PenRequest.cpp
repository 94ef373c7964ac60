#include "tesselctl/PenRequest.h"

#include "tesselctl/Quoting.h"

namespace tesselctl {

std::string ParsePen(Arguments& arguments, PenRequest& request) {
    bool raw = false;
    bool json = false;
    while (!arguments.AtEnd()) {
        std::optional<std::string> value;
        if (arguments.TakeFlag("--raw")) {
            raw = true;
        } else if (arguments.TakeFlag("--json")) {
            json = true;
        } else if (arguments.TakeOption("--app", value)) {
            if (!value || value->empty()) return Wrong("--app needs the name of an application");
            request.application = *value;
        } else if (arguments.TakeOption("--plot", value)) {
            if (!value || value->empty()) return Wrong("--plot needs a file");
            request.plot = *value;
        } else {
            return Wrong("'pen' does not take " + arguments.Peek());
        }
    }
    if (raw && json) return Wrong("--raw and --json exclude each other");
    request.form = raw ? PenForm::kRaw : json ? PenForm::kJson : PenForm::kPeople;
    return WhyUnsendable(request.application, "the name of the application");
}

}  // namespace tesselctl
