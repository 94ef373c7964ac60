#include "CoreFoundation/PropertyListLibrary.h"

#include <optional>

#include "Support/DynamicLibrary.h"
#include "Support/StandardError.h"

namespace frameworks {
namespace {

// What is used here has stayed the same through these.
constexpr const char* kFiles[] = {"libplist-2.0.so.4", "libplist-2.0.so.3", "libplist.so.3"};

}  // namespace

bool PropertyListLibrary::Find(const DynamicLibrary& library) {
    return library.Find("plist_from_xml", fromXML) && library.Find("plist_from_bin", fromBinary) &&
           library.Find("plist_free", freeNode) && library.Find("plist_get_node_type", kindOf) &&
           library.Find("plist_get_bool_val", getBoolean) &&
           library.Find("plist_get_uint_val", getWhole) &&
           library.Find("plist_get_real_val", getReal) &&
           library.Find("plist_get_string_ptr", getString) &&
           library.Find("plist_get_data_ptr", getData) &&
           library.Find("plist_array_new_iter", iterateArray) &&
           library.Find("plist_array_next_item", nextInArray) &&
           library.Find("plist_dict_new_iter", iterateDictionary) &&
           library.Find("plist_dict_next_item", nextInDictionary) &&
           library.Find("plist_new_bool", newBoolean) && library.Find("plist_new_uint", newWhole) &&
           library.Find("plist_new_real", newReal) && library.Find("plist_new_string", newString) &&
           library.Find("plist_new_data", newData) && library.Find("plist_new_array", newArray) &&
           library.Find("plist_new_dict", newDictionary) &&
           library.Find("plist_array_append_item", appendToArray) &&
           library.Find("plist_dict_set_item", setInDictionary) &&
           library.Find("plist_to_xml", toXML) && library.Find("plist_to_bin", toBinary);
}

const PropertyListLibrary* PropertyListLibrary::Load() {
    return FunctionsOf<PropertyListLibrary>([](PropertyListLibrary& functions) {
        for (const char* const file : kFiles) {
            const DynamicLibrary library(file);
            if (library.IsLoaded() && functions.Find(library)) return true;
        }
        WriteToStandardError(
            "CFPropertyList: libplist is missing, so no property list is read or written\n");
        return false;
    });
}

}  // namespace frameworks
