// What "tesselctl channel" is asked for.
#pragma once

#include <string>

#include "tesselctl/Arguments.h"

namespace tesselctl {

struct ChannelRequest {
    std::string name;  // the channel that tesselctl itself has
    // What is sent where; without a target, tesselctl listens.
    std::string target;
    std::string data;
};

// What is wrong, or an empty text. Several words of data are one text with single blanks.
std::string ParseChannel(Arguments& arguments, ChannelRequest& request);

}  // namespace tesselctl
