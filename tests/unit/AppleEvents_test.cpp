// Apple events: descriptors, and asking applications to quit.

#include <AE/AEDataModel.h>
#include <AE/AEMach.h>
#include <AE/AppleEvents.h>
#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSOpen.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::Bundle;
using applicationtest::IsRunning;
using applicationtest::MakeBundle;
using applicationtest::Programs;
using applicationtest::RefOf;
using applicationtest::StayingProgram;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;

constexpr AEDesc kEmpty = {typeNull, nullptr};

struct Descriptor {
    AEDesc desc = kEmpty;

    Descriptor() = default;
    Descriptor(DescType type, const std::string& data) {
        EXPECT_EQ(AECreateDesc(type, data.data(), static_cast<Size>(data.size()), &desc), noErr);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { AEDisposeDesc(&desc); }
};

OSStatus Send(AEEventClass eventClass, AEEventID id, DescType targetType,
              const std::string& target) {
    Descriptor address(targetType, target);
    Descriptor event;
    EXPECT_EQ(AECreateAppleEvent(eventClass, id, &address.desc, kAutoGenerateReturnID,
                                 kAnyTransactionID, &event.desc),
              noErr);
    return AESendMessage(&event.desc, nullptr, kAENoReply, kAEDefaultTimeout);
}

OSStatus Quit(const std::string& identifier) {
    return Send(kCoreEventClass, kAEQuitApplication, typeApplicationBundleID, identifier);
}

// A name that no other test, run at the same time, uses.
std::string Identifier(const std::string& name) {
    return "com.example." + name + "." + std::to_string(getpid());
}

void Launch(const std::string& path) {
    const FSRef ref = RefOf(path);
    ASSERT_EQ(LSOpenFSRef(&ref, nullptr), noErr);
}

TEST(AppleEvents, CreateDesc_KeepsItsTypeAndDisposesOnce) {
    AEDesc desc = kEmpty;
    ASSERT_EQ(AECreateDesc(typeApplicationBundleID, "abc", 3, &desc), noErr);
    EXPECT_EQ(desc.descriptorType, DescType{typeApplicationBundleID});
    // A copy: the field may lie where no reference can be bound to.
    EXPECT_NE(AEDataStorage{desc.dataHandle}, nullptr);
    EXPECT_EQ(AEDisposeDesc(&desc), noErr);
    EXPECT_EQ(desc.descriptorType, DescType{typeNull});
    EXPECT_EQ(AEDataStorage{desc.dataHandle}, nullptr);
    EXPECT_EQ(AEDisposeDesc(&desc), noErr);
}

TEST(AppleEvents, CreateDesc_OfNothing_IsPossible) {
    AEDesc desc = kEmpty;
    EXPECT_EQ(AECreateDesc(typeApplicationBundleID, nullptr, 0, &desc), noErr);
    EXPECT_EQ(AEDisposeDesc(&desc), noErr);
}

TEST(AppleEvents, CreateDesc_OfBadArguments_IsRefused) {
    AEDesc desc = {typeWildCard, nullptr};
    EXPECT_EQ(AECreateDesc(typeApplicationBundleID, "abc", -1, &desc), paramErr);
    EXPECT_EQ(desc.descriptorType, DescType{typeNull});
    EXPECT_EQ(AECreateDesc(typeApplicationBundleID, nullptr, 1, &desc), paramErr);
    EXPECT_EQ(AECreateDesc(typeApplicationBundleID, "abc", 3, nullptr), paramErr);
    EXPECT_EQ(AEDisposeDesc(nullptr), paramErr);
}

TEST(AppleEvents, CreateAppleEvent_WithoutATarget_IsRefused) {
    AppleEvent event = {typeWildCard, nullptr};
    const auto create = [&](const AEAddressDesc* target, AppleEvent* result) {
        return AECreateAppleEvent(kCoreEventClass, kAEQuitApplication, target,
                                  kAutoGenerateReturnID, kAnyTransactionID, result);
    };
    EXPECT_EQ(create(nullptr, &event), paramErr);
    EXPECT_EQ(event.descriptorType, DescType{typeNull});
    EXPECT_EQ(create(&kEmpty, &event), errAENotAEDesc);
    const Descriptor target(typeApplicationBundleID, "com.example");
    EXPECT_EQ(create(&target.desc, nullptr), paramErr);
}

TEST(AppleEvents, CreateAppleEvent_KeepsACopyOfItsTarget) {
    Descriptor event;
    {
        Descriptor target(typeApplicationBundleID, Identifier("gone"));
        ASSERT_EQ(AECreateAppleEvent(kCoreEventClass, kAEQuitApplication, &target.desc,
                                     kAutoGenerateReturnID, kAnyTransactionID, &event.desc),
                  noErr);
    }
    EXPECT_EQ(AESendMessage(&event.desc, nullptr, kAENoReply, kAEDefaultTimeout), procNotFound);
}

TEST(AppleEvents, Send_ToABundleThatIsNotRunning_FindsNoProcess) {
    EXPECT_EQ(Quit(Identifier("none")), procNotFound);
    EXPECT_EQ(Quit(""), procNotFound);
    EXPECT_EQ(Quit(std::string("com\0example", 11)), procNotFound);
}

TEST(AppleEvents, Send_OfAnotherEvent_IsRefused) {
    EXPECT_EQ(Send(kCoreEventClass, 0x6F617070, typeApplicationBundleID, "com.example"),
              errAEEventNotHandled);
    EXPECT_EQ(Send(0x61626364, kAEQuitApplication, typeApplicationBundleID, "com.example"),
              errAEEventNotHandled);
}

TEST(AppleEvents, Send_ToAnotherTypeOfTarget_IsRefused) {
    EXPECT_EQ(Send(kCoreEventClass, kAEQuitApplication, typeProcessSerialNumber, "12345678"),
              errAEUnknownAddressType);
}

TEST(AppleEvents, Send_OfWhatIsNoEvent_IsRefused) {
    const Descriptor plain(typeApplicationBundleID, "com.example");
    const Descriptor pretender(typeAppleEvent, "com.example");
    for (const AEDesc* const event : {&plain.desc, &pretender.desc, &kEmpty}) {
        EXPECT_EQ(AESendMessage(event, nullptr, kAENoReply, kAEDefaultTimeout), errAENotAppleEvent);
    }
    EXPECT_EQ(AESendMessage(nullptr, nullptr, kAENoReply, kAEDefaultTimeout), paramErr);
}

TEST(AppleEvents, Send_ThatWantsAReply_IsRefused) {
    Descriptor target(typeApplicationBundleID, Identifier("none"));
    Descriptor event;
    ASSERT_EQ(AECreateAppleEvent(kCoreEventClass, kAEQuitApplication, &target.desc,
                                 kAutoGenerateReturnID, kAnyTransactionID, &event.desc),
              noErr);
    constexpr AESendMode kWaitForReply = 3;
    EXPECT_EQ(AESendMessage(&event.desc, nullptr, kWaitForReply, kAEDefaultTimeout),
              errAEUnknownSendMode);
    AppleEvent reply = kEmpty;
    EXPECT_EQ(AESendMessage(&event.desc, &reply, kAENoReply, kAEDefaultTimeout),
              errAEUnknownSendMode);
}

TEST(AppleEvents, Send_ToARunningBundle_EndsItAndNoOther) {
    const TemporaryFolder folder;
    const Programs programs(folder.Path());
    for (const char* const name : {"one", "other"}) {
        MakeBundle(folder / (std::string(name) + ".app"),
                   {Identifier(name), "Program", "1", StayingProgram(folder.Path())});
    }
    Launch(folder / "one.app");
    ASSERT_TRUE(programs.Wait(1));
    const pid_t one = programs.Pids().front();
    Launch(folder / "other.app");
    ASSERT_TRUE(programs.Wait(2));
    ASSERT_TRUE(IsRunning(one));
    EXPECT_EQ(Quit(Identifier("one")), noErr);
    EXPECT_TRUE(WaitUntil([&] { return !IsRunning(one); }));
    for (const pid_t pid : programs.Pids()) {
        EXPECT_EQ(IsRunning(pid), pid != one);
    }
    EXPECT_EQ(Quit(Identifier("one")), procNotFound);
}

TEST(AppleEvents, Send_ToABundleWithTwoProcesses_EndsBoth) {
    const TemporaryFolder folder;
    const Programs programs(folder.Path());
    const std::string bundle = folder / "Two it's.app";
    // A program that stays is needed whose file lies in the bundle: a copy of one.
    const std::string helper = bundle + "/Contents/MacOS/helper";
    const std::string start = "#!/bin/sh\n\"${0%/*}/helper\" 60 &\necho $! > '" + folder.Path() +
                              "/pid.helper'\necho $$ > '" + folder.Path() +
                              "/pid.self'\nexec \"${0%/*}/helper\" 60\n";
    MakeBundle(bundle, {Identifier("two"), "Program", "1", start});
    fs::copy_file(fs::canonical("/bin/sleep"), helper);
    Launch(bundle);
    ASSERT_TRUE(programs.Wait(2));
    const std::vector<pid_t> pids = programs.Pids();
    // Before that they are shells.
    ASSERT_TRUE(WaitUntil([&] {
        for (const pid_t pid : pids) {
            std::error_code gone;
            if (fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", gone) != helper) {
                return false;
            }
        }
        return true;
    }));
    EXPECT_EQ(Quit(Identifier("two")), noErr);
    for (const pid_t pid : pids) {
        EXPECT_TRUE(WaitUntil([&] { return !IsRunning(pid); }));
    }
}

TEST(AppleEvents, Send_ToAnApplicationThatIgnoresIt_SucceedsAndLeavesItRunning) {
    const TemporaryFolder folder;
    const Programs programs(folder.Path());
    MakeBundle(folder / "Stubborn.app", {Identifier("stubborn"), "Program", "1",
                                         "#!/bin/sh\ntrap '' TERM\necho $$ > '" + folder.Path() +
                                             "/pid'\nwhile :; do /bin/sleep 1; done\n"});
    Launch(folder / "Stubborn.app");
    ASSERT_TRUE(programs.Wait(1));
    EXPECT_EQ(Quit(Identifier("stubborn")), noErr);
    EXPECT_TRUE(IsRunning(programs.Pids().front()));
    EXPECT_EQ(Quit(Identifier("stubborn")), noErr);
}

}  // namespace
