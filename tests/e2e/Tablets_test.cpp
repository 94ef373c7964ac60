// Tablets that are plugged in and out, as the service sees them and as the dock is told. The
// devices are umockdev's: its folder is in the sandbox, and its library in the service.
#include <gmock/gmock.h>
#include <umockdev.h>

#include <cstdlib>
#include <memory>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kSettings[] =
    "/Users/anna/Library/Preferences/"
    "veltoid-desktop-launcher.5E2A91C07B3D48F6A0C1E9D27F84B3A6C05D1E98.1/Local Store/default/xml/"
    "usersSettings.xml";
constexpr char kAutostart[] = "<settings><autostart>true</autostart></settings>";
constexpr char kNoAutostart[] = "<settings><autostart>false</autostart></settings>";

// The maker's: one in the table of models, another one, and one that is not.
constexpr char kMaker[] = "f7e5";
constexpr char kModel[] = "7102";
constexpr char kOtherModel[] = "7146";
constexpr char kUnknownModel[] = "0abc";

class Tablets : public testing::Test {
  protected:
    using Pairs = std::vector<std::string>;

    Tablets() : bed(umockdev_testbed_new()) {
        // They name a file that is not in the sandbox, and this process has read it.
        unsetenv("TSAN_OPTIONS");
        const std::string root = Root();
        // The service listens for notices in it.
        std::filesystem::permissions(root, std::filesystem::perms(0777));
        sandbox = std::make_unique<Sandbox>(std::vector<std::string>{
            "--perms", "0755", "--dir", std::filesystem::path(root).parent_path().string(),
            "--bind", root, root});
    }
    ~Tablets() override {
        service.reset();
        sandbox.reset();
        g_object_unref(bed);
    }

    void SetUp() override {
        ASSERT_TRUE(umockdev_in_mock_environment()) << "run by ctest, or with umockdev-wrapper";
    }

    std::string Root() const {
        gchar* const root = umockdev_testbed_get_root_dir(bed);
        const std::string path = root;
        g_free(root);
        return path;
    }

    // The service with its client that has presented the key, who has been told LIST.
    void Start(const std::string& list) {
        StartWithoutKey();
        EXPECT_EQ(client->Ask("auth " + service->Keys().key), "authOk");
        EXPECT_EQ(client->Receive(), "CurrentAttachedDevices=" + list);
    }
    void StartWithoutKey() {
        ::Start start;
        start.environment = {{"LD_PRELOAD", getenv("LD_PRELOAD")}, {"UMOCKDEV_DIR", Root()}};
        service = std::make_unique<Service>(*sandbox, start);
        service->WaitUntilListening();
        client = std::make_unique<Client>(service->ConnectToCommand());
    }
    std::string Told() { return client->Receive(); }

    // A USB device; its path. Numbers are as the system writes them.
    std::string Add(const std::string& name, const std::string& vendor,
                    const std::string& product) {
        return AddWith(name, {"idVendor", vendor, "idProduct", product});
    }
    std::string AddWith(const std::string& name, Pairs attributes) {
        attributes.insert(attributes.end(), {"devnum", std::to_string(++number), "busnum", "1"});
        return AddDevice(name, attributes, {"DEVTYPE", "usb_device"});
    }
    std::string AddDevice(const std::string& name, const Pairs& attributes,
                          const Pairs& properties) {
        gchar* const path =
            umockdev_testbed_add_devicev(bed, "usb", name.c_str(), nullptr,
                                         Strings(attributes).data(), Strings(properties).data());
        const std::string result = path;
        g_free(path);
        return result;
    }
    std::string Plug(const std::string& name, const std::string& vendor,
                     const std::string& product) {
        const std::string path = Add(name, vendor, product);
        umockdev_testbed_uevent(bed, path.c_str(), "add");
        return path;
    }
    void Unplug(const std::string& path) {
        umockdev_testbed_uevent(bed, path.c_str(), "remove");
        umockdev_testbed_remove_device(bed, path.c_str());
    }

    void InstallDock(const std::string& settings) const {
        MakeApplication(*sandbox, Service::kDock,
                        {"veltoid-desktop-launcher", kStays, "Tessel Dock"});
        sandbox->MakeUsersFile(kSettings, settings);
    }
    void ExpectDockStarted(std::size_t times) const {
        WaitUntil("the dock runs",
                  [&] { return StartsOf(*sandbox, "Tessel Dock").size() == times; });
    }
    // Something that is told after whatever came before it.
    void PlugAStranger() {
        const std::string path = Plug("stranger", "1234", kModel);
        const std::string last = Plug("last", kMaker, "ffff");
        WaitUntil("the last device is told", [&] { return Contains(Told(), "0XFFFF"); });
        Unplug(last);
        Unplug(path);
    }

    std::unique_ptr<Sandbox> sandbox;
    std::unique_ptr<Service> service;
    std::unique_ptr<Client> client;

  private:
    static std::vector<char*> Strings(const Pairs& pairs) {
        std::vector<char*> strings;
        for (const std::string& text : pairs) {
            strings.push_back(const_cast<char*>(text.c_str()));
        }
        strings.push_back(nullptr);
        return strings;
    }

    UMockdevTestbed* const bed;
    int number = 0;
};

TEST_F(Tablets, WithoutAny_TheListIsEmpty) {
    Start("");
}

TEST_F(Tablets, PluggedBeforeTheStart_AreInTheListThatTheKeyIsAnsweredWith) {
    Add("1-1", kMaker, kModel);
    Add("1-2", kMaker, kUnknownModel);
    Start("0X7102 0X0ABC");
    // Told at once, too: to nobody.
    service->WaitForOutput("CurrentAttachedDevices=0X7102 0X0ABC|", 2);
}

TEST_F(Tablets, PluggedLater_AreToldAsTheyCome) {
    Start("");
    Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    Plug("1-2", kMaker, kOtherModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102 0X7146");
}

TEST_F(Tablets, Unplugged_LeaveTheList) {
    const std::string first = Add("1-1", kMaker, kModel);
    Start("0X7102");
    const std::string second = Plug("1-2", kMaker, kOtherModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102 0X7146");
    Unplug(first);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7146");
    Unplug(second);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=");
}

TEST_F(Tablets, TwoOfOneModel_AreOneEntryThatTheFirstToGoTakesAlong) {
    Start("");
    const std::string first = Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    Plug("1-2", kMaker, kOtherModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102 0X7146");
    // It stands where the last of them came.
    const std::string second = Plug("1-3", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7146 0X7102");
    Unplug(first);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7146");
    // It is not in the list any more, and the list is sent all the same.
    Unplug(second);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7146");
}

TEST_F(Tablets, OfAForeignVendor_AreNobodysBusiness) {
    Add("1-1", "1234", kModel);
    Start("");
    const std::string foreign = Plug("1-2", "1234", kModel);
    Unplug(foreign);
    Plug("1-3", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
}

TEST_F(Tablets, WithoutTheProperties_AreSkipped) {
    AddWith("1-1", {});
    AddWith("1-2", {"idProduct", kModel});
    Add("1-3", "no number", kModel);
    Start("");
    Plug("1-4", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
}

TEST_F(Tablets, OfTheMakerWithoutAProduct_SendTheListAsItIs) {
    Start("");
    Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    Plug("1-2", kMaker, "no number");
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
}

TEST_F(Tablets, BeforeAnybodyHasSpoken_TheListIsToldToNobody) {
    StartWithoutKey();
    Plug("1-1", kMaker, kModel);
    service->WaitForOutput("CurrentAttachedDevices=0X7102|");
    client->ExpectSilence();
}

// --- The dock

TEST_F(Tablets, AKnownModelWhenTheUserWantsIt_StartsTheDock) {
    if (kSanitized) {
        GTEST_SKIP() << "no shell runs with a sanitizer's library in front of it";
    }
    InstallDock(kAutostart);
    Start("");
    Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    service->WaitForOutput("Tessel Tablet is attached.\n");
    ExpectDockStarted(1);
}

TEST_F(Tablets, AKnownModelThatIsThereAtTheStart_StartsTheDock) {
    if (kSanitized) {
        GTEST_SKIP() << "no shell runs with a sanitizer's library in front of it";
    }
    InstallDock(kAutostart);
    Add("1-1", kMaker, kModel);
    Start("0X7102");
    service->WaitForOutput("Tessel Tablet is attached.\n");
    ExpectDockStarted(1);
}

TEST_F(Tablets, AKnownModelWhenTheUserDoesNotWantIt_OnlySendsTheList) {
    InstallDock(kNoAutostart);
    Start("");
    Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    PlugAStranger();
    EXPECT_THAT(service->Output(), Not(HasSubstr("Tessel Tablet is attached.")));
}

TEST_F(Tablets, WithoutASettingsFile_OnlyTheListIsSent) {
    Start("");
    Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    PlugAStranger();
    EXPECT_THAT(service->Output(), Not(HasSubstr("Tessel Tablet is attached.")));
}

TEST_F(Tablets, AModelThatIsNotInTheTable_IsListedAndNeverStartsTheDock) {
    InstallDock(kAutostart);
    Start("");
    Plug("1-1", kMaker, kUnknownModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X0ABC");
    PlugAStranger();
    EXPECT_THAT(service->Output(), Not(HasSubstr("Tessel Tablet is attached.")));
}

TEST_F(Tablets, AForeignDeviceOfAKnownNumber_NeverStartsTheDock) {
    InstallDock(kAutostart);
    Start("");
    PlugAStranger();
    EXPECT_THAT(service->Output(), Not(HasSubstr("Tessel Tablet is attached.")));
}

TEST_F(Tablets, AnUnpluggedOne_StartsNothing) {
    const std::string path = Add("1-1", kMaker, kModel);
    Start("0X7102");
    InstallDock(kAutostart);
    Unplug(path);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=");
    PlugAStranger();
    EXPECT_THAT(service->Output(), Not(HasSubstr("Tessel Tablet is attached.")));
}

TEST_F(Tablets, AMarkerBehindTheFirstTenThousandBytes_IsNotSeen) {
    const std::string marker = "<autostart>true</autostart>";
    InstallDock(std::string(10000 - marker.size() + 1, ' ') + marker);
    Start("");
    Plug("1-1", kMaker, kModel);
    EXPECT_EQ(Told(), "CurrentAttachedDevices=0X7102");
    PlugAStranger();
    EXPECT_THAT(service->Output(), Not(HasSubstr("Tessel Tablet is attached.")));
    // One byte earlier it is; the file is read every time.
    sandbox->MakeUsersFile(kSettings, std::string(10000 - marker.size(), ' ') + marker + "<more>");
    Plug("1-2", kMaker, kOtherModel);
    service->WaitForOutput("Tessel Tablet is attached.\n");
}

}  // namespace
