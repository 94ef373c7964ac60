#include <SystemConfiguration/SystemConfiguration.h>

#include <new>

#include "CoreFoundation/Object.h"
#include "CoreFoundation/String.h"
#include "SystemConfiguration/ConsoleUser.h"

using frameworks::Checked;
using frameworks::ConsoleUser;

struct __SCDynamicStore final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kDynamicStoreType;

    explicit __SCDynamicStore(std::string_view itsName) : Object(kType), name(itsName) {}

    std::string Describe() const override { return DescribeHead() + "{" + name + "}"; }

  private:
    const std::string name;
};

SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef /*allocator*/, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* /*context*/) {
    const __CFString& text = Checked<__CFString>(name, "SCDynamicStoreCreate");
    if (callout != nullptr) return nullptr;
    try {
        return new __SCDynamicStore(text.Text());
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t* uid, gid_t* gid) {
    if (store != nullptr) {
        Checked<__SCDynamicStore>(store, "SCDynamicStoreCopyConsoleUser");
    }
    try {
        const std::optional<ConsoleUser> user =
            frameworks::FindConsoleUser(frameworks::ActiveSessionOfTheSeat(), "/dev/console");
        if (!user) return nullptr;
        auto name = __CFString::Make(user->name);
        if (!name) return nullptr;
        if (uid != nullptr) *uid = user->uid;
        if (gid != nullptr) *gid = user->gid;
        return name.Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
