#include "tablet/TabletDetector.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <vector>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "core/OpenFile.h"
#include "core/Owners.h"
#include "net/ConnectionManager.h"
#include "tablet/TabletModels.h"

namespace {

// Their addresses are the notifications' user data.
int _deviceAttached = 123;
int _deviceDeattached = 321;

constexpr char TesselDockSettings[] =
    "~/Library/Preferences/veltoid-desktop-launcher.5E2A91C07B3D48F6A0C1E9D27F84B3A6C05D1E98.1/"
    "Local Store/default/xml/usersSettings.xml";
constexpr char kAutostart[] = "<autostart>true</autostart>";
constexpr std::size_t kMostSettings = 10000;

// Product ids in the order of attachment, each once.
std::vector<int>& CurrentDevices() {
    static std::vector<int>& devices = *new std::vector<int>();
    return devices;
}

void Forget(int product) {
    std::vector<int>& devices = CurrentDevices();
    devices.erase(std::remove(devices.begin(), devices.end(), product), devices.end());
}

// Reads a number from the registry; false when there is none of that name.
bool ReadNumber(io_object_t service, CFStringRef key, int& number) {
    const auto property = CFOwner<CFTypeRef>::Adopt(
        IORegistryEntryCreateCFProperty(service, key, kCFAllocatorDefault, 0));
    return property && CFGetTypeID(property.Get()) == CFNumberGetTypeID() &&
           CFNumberGetValue(static_cast<CFNumberRef>(property.Get()), kCFNumberIntType, &number);
}

// Owns a service that an iterator has handed out.
class Service {
  public:
    explicit Service(io_object_t itsObject) : object(itsObject) {}
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() {
        if (object != IO_OBJECT_NULL) {
            IOObjectRelease(object);
        }
    }
    io_object_t Get() const { return object; }
    explicit operator bool() const { return object != IO_OBJECT_NULL; }

  private:
    io_object_t object;
};

struct Change {
    bool list = false;       // the list may have changed
    bool supported = false;  // a tablet that we know has come
};

void Note(io_object_t service, bool attached, Change& change) {
    int vendor = 0;
    int product = 0;
    if (!ReadNumber(service, CFSTR("idVendor"), vendor) || vendor != kTabletVendor) {
        return;
    }
    change.list = true;
    if (!ReadNumber(service, CFSTR("idProduct"), product)) {
        return;
    }
    Forget(product);
    if (attached) {
        CurrentDevices().push_back(product);
        change.supported = change.supported || IsKnownTablet(product);
    }
}

}  // namespace

bool TabletDetector::InitIOListeners() {
    return InitIOListener(kIOFirstMatchNotification, &_deviceAttached) &&
           InitIOListener(kIOTerminatedNotification, &_deviceDeattached);
}

bool TabletDetector::InitIOListener(const char* notificationType, void* userData) {
    // Every service there is: which ones are tablets is for DeviceAdded to find out.
    const CFMutableDictionaryRef matching = IOServiceMatching("IOService");
    if (matching == nullptr) {
        return false;
    }
    // Port and iterator live as long as the process: without them no notification comes.
    const IONotificationPortRef port = IONotificationPortCreate(kIOMasterPortDefault);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), IONotificationPortGetRunLoopSource(port),
                       kCFRunLoopDefaultMode);
    io_iterator_t iterator = IO_OBJECT_NULL;
    IOServiceAddMatchingNotification(port, notificationType, matching, DeviceAdded, userData,
                                     &iterator);
    // Arms the notification, and takes in what is there already.
    DeviceAdded(userData, iterator);
    return true;
}

void TabletDetector::DeviceAdded(void* userData, io_iterator_t iterator) {
    const bool attached = *static_cast<const int*>(userData) == _deviceAttached;
    Change change;
    while (const Service service{IOIteratorNext(iterator)}) {
        Note(service.Get(), attached, change);
    }
    if (change.list) {
        SendDevicesList();
    }
    if (change.supported && IsStartOnAttachEnabled()) {
        Helpers::logprint("Tessel Tablet is attached.");
        ProcessManager::StartTesselDock("");
    }
}

void TabletDetector::SendDevicesList() {
    std::wstring text = L"CurrentAttachedDevices=";
    const wchar_t* separator = L"";
    for (const int product : CurrentDevices()) {
        wchar_t id[9] = L"";
        std::swprintf(id, sizeof id / sizeof id[0], L"0X%04X", static_cast<unsigned>(product));
        text += separator;
        text += id;
        separator = L" ";
    }
    if (Server* const server = ConnectionManager::GetCommandServer()) {
        server->reply(text);
    }
}

bool TabletDetector::IsStartOnAttachEnabled() {
    const FileOwner file =
        OpenFile(Helpers::replaceTildeWithHomeDir(TesselDockSettings), O_RDONLY, "r");
    if (!file) {
        return false;
    }
    std::string settings(kMostSettings, '\0');
    settings.resize(std::fread(&settings[0], 1, settings.size(), file.get()));
    // A text ends with its first NUL.
    return std::strstr(settings.c_str(), kAutostart) != nullptr;
}
