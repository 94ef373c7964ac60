// Devices that are not there, and a thread's life for each test that meets them.
#pragma once

#include <gtest/gtest.h>
#include <umockdev.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// /sys, /dev and the notices of devices are the test's own while it lives.
class Testbed {
  public:
    using Pairs = std::vector<std::string>;

    Testbed() : bed(umockdev_testbed_new()) {}
    Testbed(const Testbed&) = delete;
    Testbed& operator=(const Testbed&) = delete;
    ~Testbed() { g_object_unref(bed); }

    // Names and values take turns in both lists. The device's path in /sys; nobody is told.
    std::string Add(const char* subsystem, const std::string& name, const Pairs& attributes,
                    const Pairs& properties, const char* parent = nullptr) {
        gchar* const path =
            umockdev_testbed_add_devicev(bed, subsystem, name.c_str(), parent,
                                         Strings(attributes).data(), Strings(properties).data());
        const std::string result = path;
        g_free(path);
        return result;
    }
    void Tell(const std::string& path, const char* action) {
        umockdev_testbed_uevent(bed, path.c_str(), action);
    }
    void RemoveAttribute(const std::string& path, const char* name) {
        gchar* const root = umockdev_testbed_get_root_dir(bed);
        EXPECT_TRUE(std::filesystem::remove(root + path + "/" + name));
        g_free(root);
    }
    // As the kernel does it: the device has gone from /sys when it is told.
    void Remove(const std::string& path) {
        Tell(path, "remove");
        umockdev_testbed_remove_device(bed, path.c_str());
    }

    // A device, and its node, in the words of umockdev's records.
    void AddRecord(const std::string& record) {
        GError* error = nullptr;
        EXPECT_TRUE(umockdev_testbed_add_from_string(bed, record.c_str(), &error));
        EXPECT_EQ(error, nullptr) << error->message;
    }
    // How the device's node answers to what is asked of it.
    void LoadIoctl(const std::string& node, const std::string& file) {
        GError* error = nullptr;
        EXPECT_TRUE(umockdev_testbed_load_ioctl(bed, node.c_str(), file.c_str(), &error));
        EXPECT_EQ(error, nullptr) << error->message;
    }

    // Where what the device's node gives to its readers is written to. Lent.
    int WriterOf(const std::string& node) { return umockdev_testbed_get_dev_fd(bed, node.c_str()); }

    // Where /sys and /dev really are.
    std::string Root() const {
        gchar* const root = umockdev_testbed_get_root_dir(bed);
        const std::string result = root;
        g_free(root);
        return result;
    }
    UMockdevTestbed* Get() { return bed; }

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
};

// What hears of devices belongs to its thread, and goes with it.
inline void OnAThread(const std::function<void()>& work) {
    std::thread(work).join();
}

// Without the preloaded library a test would see the machine's own devices.
class DeviceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bed = std::make_unique<Testbed>();
        ASSERT_TRUE(umockdev_in_mock_environment()) << "run by ctest, or with umockdev-wrapper";
    }

    std::unique_ptr<Testbed> bed;
};
