#include "unit/support/LaunchAnswer.h"

namespace {

OSStatus theAnswer = noErr;

}  // namespace

void LetLaunchingAnswer(OSStatus status) {
    theAnswer = status;
}

// By these names the linker knows what a call is wrapped into (tests/CMakeLists.txt).
extern "C" OSStatus RealOpenFromRefSpec(const LSLaunchFSRefSpec* launch,
                                        FSRef* launched) asm("__real_LSOpenFromRefSpec");
extern "C" OSStatus AnswerOpenFromRefSpec(const LSLaunchFSRefSpec* launch,
                                          FSRef* launched) asm("__wrap_LSOpenFromRefSpec");

OSStatus AnswerOpenFromRefSpec(const LSLaunchFSRefSpec* launch, FSRef* launched) {
    return theAnswer == noErr ? RealOpenFromRefSpec(launch, launched) : theAnswer;
}
