// Saves an application's icon of 128 x 128 pixels as "/Users/Shared/icon.png", from where the dock
// takes it.
//
// All members are static, for the thread that handles commands. Every failure is logged.
#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <string>

class IconCreator {
  public:
    IconCreator() = delete;

    // The name of the icon file that the bundle asks for, with an ending; empty when it asks for
    // none. A bundle whose key holds an empty text asks for ".icns".
    static std::string GetIconFileFromBundle(const std::string& bundlePath);
    // Writes a PNG file, in the place of an earlier one.
    static bool SaveImage(CGImageRef image, const std::string& path);
    static bool SaveIconFromBundleAsPNG(const std::wstring& bundlePath);
};
