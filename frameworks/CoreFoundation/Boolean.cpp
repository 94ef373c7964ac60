#include "CoreFoundation/Boolean.h"

#include "CoreFoundation/Immortal.h"

namespace {

frameworks::Immortal<__CFBoolean> trueObject(true);
frameworks::Immortal<__CFBoolean> falseObject(false);

}  // namespace

const CFBooleanRef kCFBooleanTrue = trueObject.Get();
const CFBooleanRef kCFBooleanFalse = falseObject.Get();

std::string __CFBoolean::Describe() const {
    return DescribeHead() + (value ? "{value = true}" : "{value = false}");
}

CFTypeID CFBooleanGetTypeID() {
    return __CFBoolean::kType.id;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return frameworks::Checked<__CFBoolean>(boolean, "CFBooleanGetValue").Value();
}
