#include "tesselctl/ChannelRequest.h"

#include "tesselctl/Quoting.h"

namespace tesselctl {
namespace {

std::string CheckName(const std::string& name) {
    if (name.empty()) return Wrong("a channel needs a name");
    return WhyUnsendable(name, "the name of a channel");
}

std::string ParseListen(Arguments& arguments, ChannelRequest& request) {
    if (arguments.AtEnd()) return Wrong("'channel listen' needs the name of a channel");
    request.name = arguments.Take();
    if (!arguments.AtEnd()) return Wrong("'channel listen' takes one name");
    return CheckName(request.name);
}

std::string ParseSend(Arguments& arguments, ChannelRequest& request) {
    const std::vector<std::string> words = arguments.Rest();
    if (words.size() < 3)
        return Wrong("'channel send' needs the sender's channel, the receiver's, and the data");
    request.name = words[0];
    request.target = words[1];
    request.data = words[2];
    for (std::size_t i = 3; i < words.size(); i++)
        request.data += ' ' + words[i];
    for (const std::string& name : {request.name, request.target})
        if (std::string wrong = CheckName(name); !wrong.empty()) return wrong;
    return WhyUnsendable(request.data, "the data");
}

}  // namespace

std::string ParseChannel(Arguments& arguments, ChannelRequest& request) {
    if (arguments.TakeFlag("listen")) return ParseListen(arguments, request);
    if (arguments.TakeFlag("send")) return ParseSend(arguments, request);
    return Wrong("'channel' needs 'listen' or 'send'");
}

}  // namespace tesselctl
