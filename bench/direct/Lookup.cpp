#include <Carbon/Carbon.h>
#include <dlfcn.h>

#include <functional>
#include <random>

#include "core/Owners.h"
#include "direct/Measurements.h"
#include "direct/Memory.h"
#include "support/Clock.h"
#include "support/Failure.h"

namespace {

// Looks up COUNT applications, drawn at random; the first one pays for getting to know them all.
Figures Measure(const Options& options, const std::function<bool(const std::string&)>& find) {
    const std::string prefix = options.Text("identifier");
    std::mt19937 random(1);
    std::uniform_int_distribution<long> draw(0, options.Number("applications") - 1);
    const auto lookUp = [&] {
        const std::string identifier = prefix + std::to_string(draw(random));
        const std::int64_t start = Now();
        if (!find(identifier)) {
            throw Failure(identifier + " was not found");
        }
        return Now() - start;
    };
    const double before = ResidentMemory();
    const std::int64_t first = lookUp();
    std::vector<std::int64_t> samples;
    for (long sample = 0; sample < options.Number("count"); ++sample) {
        samples.push_back(lookUp());
    }
    const std::int64_t start = Now();
    if (find(prefix + "none")) {
        throw Failure("what is not there was found");
    }
    const std::int64_t end = Now();
    Figures figures = Summary(std::move(samples));
    figures["first"] = static_cast<double>(first);
    figures["none"] = static_cast<double>(end - start);
    figures["memory before"] = before;
    figures["memory after"] = ResidentMemory();
    return figures;
}

// GLib, as far as a launcher needs it to find an application by its id.
class Gio {
  public:
    // cppcheck-suppress [noCopyConstructor,noOperatorEq,noDestructor] ; the library stays loaded
    Gio() : library(dlopen("libgio-2.0.so.0", RTLD_NOW)) {
        if (library == nullptr) {
            throw Failure("GLib is missing: " + std::string(dlerror()));
        }
        Find("g_desktop_app_info_new", make);
        Find("g_object_unref", release);
    }

    bool Has(const std::string& id) const {
        void* const information = make(id.c_str());
        if (information == nullptr) {
            return false;
        }
        release(information);
        return true;
    }

  private:
    template <typename Function>
    void Find(const char* name, Function*& function) {
        function = reinterpret_cast<Function*>(dlsym(library, name));
        if (function == nullptr) {
            throw Failure("GLib has no " + std::string(name));
        }
    }

    void* library;
    void* (*make)(const char*) = nullptr;
    void (*release)(void*) = nullptr;
};

}  // namespace

Figures MeasureLookup(const Options& options) {
    return Measure(options, [](const std::string& identifier) {
        const auto text = CFOwner<CFStringRef>::Adopt(CFStringCreateWithCString(
            kCFAllocatorDefault, identifier.c_str(), kCFStringEncodingUTF8));
        FSRef application = {};
        return LSFindApplicationForInfo(kLSUnknownCreator, text.Get(), nullptr, &application,
                                        nullptr) == noErr;
    });
}

Figures MeasureLookupByGio(const Options& options) {
    const Gio gio;
    return Measure(options, [&gio](const std::string& id) { return gio.Has(id + ".desktop"); });
}
