#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "CFTestSupport.h"
#include "RunLoopUntil.h"
#include "Testbed.h"
#include "support/NoDescriptors.h"

namespace {

constexpr int kNone = -1;

// Counts what it hears.
struct Listener {
    std::vector<std::pair<int, int>> seen;
    std::vector<std::string>* log = nullptr;
    const char* name = "";
    bool drains = true;
    int notices = 0;
    std::function<void()> whatElse;
};

int Number(io_object_t service, CFStringRef key) {
    const Owned<CFTypeRef> property =
        IORegistryEntryCreateCFProperty(service, key, kCFAllocatorDefault, 0);
    int number = kNone;
    if (property != nullptr) {
        EXPECT_EQ(CFGetTypeID(property), CFNumberGetTypeID());
        CFNumberGetValue(static_cast<CFNumberRef>(CFTypeRef{property}), kCFNumberIntType, &number);
    }
    return number;
}

std::vector<std::pair<int, int>> Drain(io_iterator_t iterator) {
    std::vector<std::pair<int, int>> found;
    while (const io_object_t service = IOIteratorNext(iterator)) {
        found.emplace_back(Number(service, CFSTR("idVendor")), Number(service, CFSTR("idProduct")));
        EXPECT_EQ(IOObjectRelease(service), kIOReturnSuccess);
    }
    return found;
}

void Hear(void* refcon, io_iterator_t iterator) {
    auto& listener = *static_cast<Listener*>(refcon);
    ++listener.notices;
    if (listener.log != nullptr) listener.log->push_back(listener.name);
    if (listener.drains) {
        for (const auto& device : Drain(iterator)) {
            listener.seen.push_back(device);
        }
    }
    if (listener.whatElse) listener.whatElse();
}

// The iterator of a notification on a port of its own, as it is before it was drained.
io_iterator_t Listen(const char* type, Listener& listener, const char* name = "IOService") {
    const IONotificationPortRef port = IONotificationPortCreate(kIOMasterPortDefault);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), IONotificationPortGetRunLoopSource(port),
                       kCFRunLoopDefaultMode);
    io_iterator_t iterator = IO_OBJECT_NULL;
    EXPECT_EQ(IOServiceAddMatchingNotification(port, type, IOServiceMatching(name), Hear, &listener,
                                               &iterator),
              kIOReturnSuccess);
    return iterator;
}

class IOKit : public DeviceTest {
  protected:
    // NAME is the place on the bus; NUMBER tells devices apart that had it one after the other.
    std::string AddDevice(const std::string& name, const std::string& vendor,
                          const std::string& product, int number = 1) {
        Testbed::Pairs attributes = {"dev", "189:" + std::to_string(number)};
        if (!vendor.empty()) attributes.insert(attributes.end(), {"idVendor", vendor});
        if (!product.empty()) attributes.insert(attributes.end(), {"idProduct", product});
        return bed->Add("usb", name, attributes, {"DEVTYPE", "usb_device"});
    }
    std::string Plug(const std::string& name, const std::string& vendor, const std::string& product,
                     int number = 1) {
        const std::string path = AddDevice(name, vendor, product, number);
        bed->Tell(path, "add");
        return path;
    }

    using Devices = std::vector<std::pair<int, int>>;
};

TEST_F(IOKit, Arrivals_BeginWithWhatIsPlugged) {
    AddDevice("1-1", "f7e5\n", "7101\n", 1);
    AddDevice("1-2", "046d\n", "c077\n", 2);
    AddDevice("usb1", "1d6b\n", "0002\n", 3);
    OnAThread([&] {
        Listener listener;
        Devices found = Drain(Listen(kIOFirstMatchNotification, listener));
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, (Devices{{0x046d, 0xc077}, {0x1d6b, 0x0002}, {0xf7e5, 0x7101}}));
        EXPECT_EQ(listener.notices, 0);
    });
}

TEST_F(IOKit, Departures_BeginWithNothing) {
    AddDevice("1-1", "f7e5\n", "7101\n");
    OnAThread([&] {
        Listener listener;
        EXPECT_TRUE(Drain(Listen(kIOTerminatedNotification, listener)).empty());
    });
}

TEST_F(IOKit, PartsOfADevice_AreNoServices) {
    const std::string device = AddDevice("1-1", "f7e5\n", "7101\n");
    bed->Add("usb", "1-1:1.0", {"bInterfaceNumber", "00\n"}, {"DEVTYPE", "usb_interface"},
             device.c_str());
    OnAThread([&] {
        Listener listener;
        EXPECT_EQ(Drain(Listen(kIOFirstMatchNotification, listener)), (Devices{{0xf7e5, 0x7101}}));
        bed->Tell(device + "/1-1:1.0", "add");
        RunLoopForTurns(5);
        EXPECT_EQ(listener.notices, 0);
    });
}

TEST_F(IOKit, DevicePluggedLater_IsTold) {
    OnAThread([&] {
        Listener listener;
        Drain(Listen(kIOFirstMatchNotification, listener));
        Plug("1-1", "f7e5\n", "7101\n");
        ASSERT_TRUE(RunLoopUntil([&] { return !listener.seen.empty(); }));
        EXPECT_EQ(listener.seen, (Devices{{0xf7e5, 0x7101}}));
        EXPECT_EQ(listener.notices, 1);
    });
}

TEST_F(IOKit, UnpluggedDevice_StillHasItsProperties) {
    const std::string before = AddDevice("1-1", "f7e5\n", "7101\n", 1);
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        const std::string later = Plug("1-2", "f7e5\n", "7102\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return !came.seen.empty(); }));
        bed->Remove(before);
        bed->Remove(later);
        ASSERT_TRUE(RunLoopUntil([&] { return went.seen.size() == 2; }));
        EXPECT_EQ(went.seen, (Devices{{0xf7e5, 0x7101}, {0xf7e5, 0x7102}}));
        EXPECT_EQ(came.notices, 1);
    });
}

TEST_F(IOKit, TwoOfTheSameModel_ComeAndGoEachForItself) {
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        const std::string first = Plug("1-1", "f7e5\n", "7101\n", 1);
        Plug("1-2", "f7e5\n", "7101\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return came.seen.size() == 2; }));
        bed->Remove(first);
        ASSERT_TRUE(RunLoopUntil([&] { return went.seen.size() == 1; }));
        RunLoopForTurns(3);
        EXPECT_EQ(went.seen, (Devices{{0xf7e5, 0x7101}}));
    });
}

TEST_F(IOKit, ALateNoticeOfADeviceThatIsGoing_TellsNothing) {
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        const std::string path = Plug("1-1", "f7e5\n", "7101\n", 1);
        ASSERT_TRUE(RunLoopUntil([&] { return came.seen.size() == 1; }));
        bed->RemoveAttribute(path, "dev");
        bed->Tell(path, "bind");
        bed->Remove(path);
        ASSERT_TRUE(RunLoopUntil([&] { return !went.seen.empty(); }));
        EXPECT_EQ(came.notices, 1);
        EXPECT_EQ(went.notices, 1);
    });
}

TEST_F(IOKit, DeviceWithoutProperties_HasNone) {
    AddDevice("1-1", "", "");
    AddDevice("1-2", "f7e5\n", "", 2);
    AddDevice("1-3", "no number\n", "12345678901234567890\n", 3);
    OnAThread([&] {
        Listener listener;
        Devices found = Drain(Listen(kIOFirstMatchNotification, listener));
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, (Devices{{kNone, kNone}, {kNone, kNone}, {0xf7e5, kNone}}));
    });
}

TEST_F(IOKit, Property_OfAnotherName_IsNull) {
    AddDevice("1-1", "f7e5\n", "7101\n");
    OnAThread([&] {
        Listener listener;
        const io_iterator_t iterator = Listen(kIOFirstMatchNotification, listener);
        const io_object_t service = IOIteratorNext(iterator);
        EXPECT_EQ(Number(service, CFSTR("idvendor")), kNone);
        EXPECT_EQ(Number(service, CFSTR("locationID")), kNone);
        EXPECT_EQ(Number(service, CFSTR("idVendor")), 0xf7e5);
        EXPECT_EQ(IOObjectRelease(service), kIOReturnSuccess);
        EXPECT_EQ(Number(service, CFSTR("idVendor")), kNone);
        EXPECT_EQ(IOObjectRelease(service), kIOReturnBadArgument);
    });
}

// Udev says several things of a device that has come: that drivers were bound to it, and the like.
TEST_F(IOKit, SeveralNoticesOfOneDevice_AreOneArrival) {
    const std::string there = AddDevice("1-1", "f7e5\n", "7101\n");
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        for (const char* const action : {"add", "bind", "change", "unbind"}) {
            bed->Tell(there, action);
        }
        const std::string later = Plug("1-2", "f7e5\n", "7102\n", 2);
        bed->Tell(later, "bind");
        ASSERT_TRUE(RunLoopUntil([&] { return !came.seen.empty(); }));
        RunLoopForTurns(5);
        EXPECT_EQ(came.seen, (Devices{{0xf7e5, 0x7102}}));
        EXPECT_TRUE(went.seen.empty());
    });
}

TEST_F(IOKit, AnotherDeviceInTheSamePlace_IsADepartureAndAnArrival) {
    const std::string path = AddDevice("1-1", "f7e5\n", "7101\n", 1);
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        // The notice that the first one has gone was never heard.
        umockdev_testbed_remove_device(bed->Get(), path.c_str());
        Plug("1-1", "f7e5\n", "7102\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return !came.seen.empty(); }));
        EXPECT_EQ(went.seen, (Devices{{0xf7e5, 0x7101}}));
        EXPECT_EQ(came.seen, (Devices{{0xf7e5, 0x7102}}));
    });
}

// A thread that was busy for long finds many notices at once; whoever keeps a list of devices must
// hear of them as they happened.
TEST_F(IOKit, Ports_OfOneThread_TellInTheOrderOfEvents) {
    const std::string path = AddDevice("1-1", "f7e5\n", "7101\n", 1);
    OnAThread([&] {
        std::vector<std::string> log;
        Listener came;
        Listener went;
        came.log = went.log = &log;
        came.name = "came";
        went.name = "went";
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        bed->Remove(path);
        Plug("1-1", "f7e5\n", "7101\n", 2);
        bed->Remove(path);
        Plug("1-1", "f7e5\n", "7101\n", 3);
        ASSERT_TRUE(RunLoopUntil([&] { return log.size() == 4; }));
        EXPECT_EQ(log, (std::vector<std::string>{"went", "came", "went", "came"}));
    });
}

TEST_F(IOKit, IteratorThatIsNotDrained_GetsNoFurtherNotice) {
    OnAThread([&] {
        Listener listener;
        listener.drains = false;
        const io_iterator_t iterator = Listen(kIOFirstMatchNotification, listener);
        // Before it was drained for the first time, too.
        Plug("1-1", "f7e5\n", "7101\n", 1);
        RunLoopForTurns(5);
        EXPECT_EQ(listener.notices, 0);
        EXPECT_EQ(Drain(iterator).size(), 1u);
        Plug("1-2", "f7e5\n", "7102\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return listener.notices == 1; }));
        Plug("1-3", "f7e5\n", "7103\n", 3);
        RunLoopForTurns(5);
        EXPECT_EQ(listener.notices, 1);
        EXPECT_EQ(Drain(iterator), (Devices{{0xf7e5, 0x7102}, {0xf7e5, 0x7103}}));
        Plug("1-4", "f7e5\n", "7104\n", 4);
        EXPECT_TRUE(RunLoopUntil([&] { return listener.notices == 2; }));
    });
}

TEST_F(IOKit, IteratorThatWasReleased_GetsNoNotice) {
    OnAThread([&] {
        Listener released;
        Listener kept;
        const io_iterator_t iterator = Listen(kIOFirstMatchNotification, released);
        Drain(iterator);
        Drain(Listen(kIOFirstMatchNotification, kept));
        EXPECT_EQ(IOObjectRelease(iterator), kIOReturnSuccess);
        Plug("1-1", "f7e5\n", "7101\n");
        ASSERT_TRUE(RunLoopUntil([&] { return kept.notices == 1; }));
        EXPECT_EQ(released.notices, 0);
        EXPECT_EQ(IOIteratorNext(iterator), IO_OBJECT_NULL);
    });
}

TEST_F(IOKit, CallBack_MayAddAndReleaseNotifications) {
    OnAThread([&] {
        Listener first;
        Listener added;
        const io_iterator_t iterator = Listen(kIOFirstMatchNotification, first);
        Drain(iterator);
        first.whatElse = [&] {
            for (int count = 0; count < 20; ++count) {
                Drain(Listen(kIOFirstMatchNotification, added));
            }
            IOObjectRelease(iterator);
        };
        Plug("1-1", "f7e5\n", "7101\n", 1);
        ASSERT_TRUE(RunLoopUntil([&] { return first.notices == 1; }));
        Plug("1-2", "f7e5\n", "7102\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return added.notices == 20; }));
        EXPECT_EQ(first.notices, 1);
    });
}

TEST_F(IOKit, CallBack_ThatRunsTheLoop_LosesNothing) {
    OnAThread([&] {
        Listener listener;
        Drain(Listen(kIOFirstMatchNotification, listener));
        listener.whatElse = [&] {
            if (listener.seen.size() == 1) {
                EXPECT_TRUE(RunLoopUntil([&] { return listener.seen.size() == 2; }));
            }
        };
        Plug("1-1", "f7e5\n", "7101\n", 1);
        Plug("1-2", "f7e5\n", "7102\n", 2);
        EXPECT_TRUE(RunLoopUntil([&] { return listener.seen.size() == 2; }));
    });
}

TEST_F(IOKit, Matching_OfAnotherClass_FindsNothing) {
    AddDevice("1-1", "f7e5\n", "7101\n", 1);
    OnAThread([&] {
        Listener other;
        Listener kept;
        EXPECT_TRUE(Drain(Listen(kIOFirstMatchNotification, other, "IONetworkInterface")).empty());
        Drain(Listen(kIOFirstMatchNotification, kept));
        Plug("1-2", "f7e5\n", "7102\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return kept.notices == 1; }));
        EXPECT_EQ(other.notices, 0);
    });
}

TEST_F(IOKit, AddMatchingNotification_OfAnUnknownType_IsRefused_AndTakesTheDictionary) {
    OnAThread([&] {
        Listener listener;
        const IONotificationPortRef port = IONotificationPortCreate(kIOMasterPortDefault);
        const CFMutableDictionaryRef matching = IOServiceMatching("IOService");
        CFRetain(matching);
        io_iterator_t iterator = 77;
        EXPECT_EQ(IOServiceAddMatchingNotification(port, "IOServiceMatched", matching, Hear,
                                                   &listener, &iterator),
                  kIOReturnUnsupported);
        EXPECT_EQ(iterator, IO_OBJECT_NULL);
        // The last reference is ours now.
        CFRelease(matching);
    });
}

TEST_F(IOKit, ServiceMatching_IsADictionaryWithTheClass) {
    const Owned<CFMutableDictionaryRef> matching = IOServiceMatching("IOService");
    ASSERT_EQ(CFDictionaryGetCount(matching), 1);
    EXPECT_EQ(
        TextOf(static_cast<CFStringRef>(CFDictionaryGetValue(matching, CFSTR("IOProviderClass")))),
        "IOService");
}

TEST_F(IOKit, Objects_ThatAreNone_AreRefused) {
    EXPECT_EQ(IOIteratorNext(IO_OBJECT_NULL), IO_OBJECT_NULL);
    EXPECT_EQ(IOIteratorNext(12345678), IO_OBJECT_NULL);
    EXPECT_EQ(IOObjectRelease(IO_OBJECT_NULL), kIOReturnBadArgument);
    EXPECT_EQ(Number(12345678, CFSTR("idVendor")), kNone);
    AddDevice("1-1", "f7e5\n", "7101\n", 1);
    OnAThread([&] {
        Listener listener;
        const io_iterator_t iterator = Listen(kIOFirstMatchNotification, listener);
        EXPECT_EQ(Number(iterator, CFSTR("idVendor")), kNone);
        EXPECT_EQ(IOIteratorNext(IOIteratorNext(iterator)), IO_OBJECT_NULL);
    });
}

TEST_F(IOKit, NullPointers_Stop) {
    Listener listener;
    io_iterator_t iterator = IO_OBJECT_NULL;
    EXPECT_DEATH(IONotificationPortGetRunLoopSource(nullptr), "IONotificationPortGetRunLoopSource");
    EXPECT_DEATH(IOServiceMatching(nullptr), "IOServiceMatching");
    EXPECT_DEATH(IOServiceAddMatchingNotification(nullptr, kIOFirstMatchNotification,
                                                  IOServiceMatching("IOService"), Hear, &listener,
                                                  &iterator),
                 "IOServiceAddMatchingNotification");
}

TEST_F(IOKit, ManyNotices_AreAllTold) {
    OnAThread([&] {
        constexpr int kRounds = 100;
        // The test bed's queues hold no more than a few notices, so each round waits for both of
        // the one before.
        std::atomic<int> told{0};
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        came.whatElse = [&] { ++told; };
        went.whatElse = [&] { ++told; };
        std::thread plugs([&] {
            for (int round = 0; round < kRounds; ++round) {
                while (told < 2 * round)
                    std::this_thread::yield();
                bed->Remove(Plug("1-1", "f7e5\n", "7101\n", round));
            }
        });
        EXPECT_TRUE(RunLoopUntil([&] { return told == 2 * kRounds; }, std::chrono::seconds(60)));
        plugs.join();
        EXPECT_EQ(came.seen.size(), std::size_t{kRounds});
        EXPECT_EQ(went.seen.size(), std::size_t{kRounds});
    });
}

TEST_F(IOKit, DeviceThatComesWhileThereAreNoDescriptors_IsToldOnceThereAre) {
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        Plug("1-1", "f7e5\n", "7101\n");
        {
            const NoDescriptors now;
            RunLoopForTurns(5);
            EXPECT_TRUE(came.seen.empty());
        }
        ASSERT_TRUE(RunLoopUntil([&] { return !came.seen.empty(); }));
        EXPECT_EQ(came.seen, (Devices{{0xf7e5, 0x7101}}));
        EXPECT_EQ(went.notices, 0);
    });
}

TEST_F(IOKit, DeviceThatGoesBeforeItCouldBeLookedAt_IsNeverTold) {
    OnAThread([&] {
        Listener came;
        Listener went;
        Drain(Listen(kIOFirstMatchNotification, came));
        Drain(Listen(kIOTerminatedNotification, went));
        const std::string path = Plug("1-1", "f7e5\n", "7101\n");
        {
            const NoDescriptors now;
            RunLoopForTurns(5);
        }
        bed->Remove(path);
        Plug("1-2", "f7e5\n", "7102\n", 2);
        ASSERT_TRUE(RunLoopUntil([&] { return !came.seen.empty(); }));
        RunLoopForTurns(5);
        EXPECT_EQ(came.seen, (Devices{{0xf7e5, 0x7102}}));
        EXPECT_EQ(went.notices, 0);
    });
}

TEST_F(IOKit, ArrivalsAskedForWithoutDescriptors_AreToldOnceThereAre) {
    AddDevice("1-1", "f7e5\n", "7101\n");
    OnAThread([&] {
        Listener came;
        // What hears of changes is there before: it needs descriptors of its own.
        const IONotificationPortRef port = IONotificationPortCreate(kIOMasterPortDefault);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), IONotificationPortGetRunLoopSource(port),
                           kCFRunLoopDefaultMode);
        {
            const NoDescriptors now;
            EXPECT_TRUE(Drain(Listen(kIOFirstMatchNotification, came)).empty());
        }
        ASSERT_TRUE(RunLoopUntil([&] { return !came.seen.empty(); }));
        EXPECT_EQ(came.seen, (Devices{{0xf7e5, 0x7101}}));
    });
}

TEST_F(IOKit, WithoutAnyDevice_ThereIsNoneAndNoError) {
    OnAThread([&] {
        Listener came;
        Listener went;
        EXPECT_TRUE(Drain(Listen(kIOFirstMatchNotification, came)).empty());
        EXPECT_TRUE(Drain(Listen(kIOTerminatedNotification, went)).empty());
    });
}

}  // namespace
