// Plugs devices in and out as it is told. Runs with umockdev's library in the process from its
// start.
//
// Prints the folder in which /sys and /dev of the devices lie. Then, on standard input, a line
// each, answered with the line "done": "plug NAME VENDOR PRODUCT" and "unplug NAME". Ends with its
// input, and the folder with it.
#include <sys/stat.h>
#include <umockdev.h>

#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string Plug(UMockdevTestbed* bed, std::istream& words, const std::string& name) {
    static int number = 0;
    std::string vendor, product;
    words >> vendor >> product;
    const std::string device = std::to_string(++number % 100 + 1);
    const char* const attributes[] = {"idVendor", vendor.c_str(), "idProduct", product.c_str(),
                                      "devnum",   device.c_str(), "busnum",    "1",
                                      nullptr};
    const char* const properties[] = {"DEVTYPE", "usb_device", nullptr};
    gchar* const path = umockdev_testbed_add_devicev(bed, "usb", name.c_str(), nullptr,
                                                     const_cast<gchar**>(attributes),
                                                     const_cast<gchar**>(properties));
    const std::string made = path;
    g_free(path);
    umockdev_testbed_uevent(bed, made.c_str(), "add");
    return made;
}

}  // namespace

int main() {
    UMockdevTestbed* const bed = umockdev_testbed_new();
    gchar* const root = umockdev_testbed_get_root_dir(bed);
    // The service listens for notices in it, as another user.
    if (!umockdev_in_mock_environment() || chmod(root, 0777) != 0) {
        return 1;
    }
    std::cout << root << std::endl;
    g_free(root);
    std::map<std::string, std::string> plugged;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string verb, name;
        words >> verb >> name;
        if (verb == "plug") {
            plugged[name] = Plug(bed, words, name);
        } else {
            // As the kernel does it: the device is there until it has been told.
            umockdev_testbed_uevent(bed, plugged[name].c_str(), "remove");
            umockdev_testbed_remove_device(bed, plugged[name].c_str());
            plugged.erase(name);
        }
        std::cout << "done" << std::endl;
    }
    g_object_unref(bed);
}
