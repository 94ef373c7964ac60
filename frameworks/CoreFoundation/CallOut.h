// The one way from the layer into a client's function.
//
// Every callback that a client handed in (of a socket, an observer, an event handler, a context) is
// called through this function and through nothing else, without a lock held. It keeps its frame on
// the stack, so that a backtrace says where the layer ends and the client begins.
//
// Failure: a client's exception ends the program here, with the client still on the stack; it could
// not pass through the C interface.
#pragma once

namespace frameworks {

template <typename Result, typename... Parameters, typename... Arguments>
[[gnu::noinline]] Result CallOutToTheClient(Result (*function)(Parameters...),
                                            Arguments... arguments) noexcept {
    if constexpr (__is_same(Result, void)) {
        function(arguments...);
        // Or the call above would become a jump, and this frame would be gone.
        asm volatile("");
    } else {
        Result result = function(arguments...);
        asm volatile("");
        return result;
    }
}

}  // namespace frameworks
