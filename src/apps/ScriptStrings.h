// The shell scripts that the service writes and runs, word for word. Nothing that is put into them
// is escaped.
#pragma once

namespace ScriptStrings {

// "###" is the folder with the update. The update is called .zip but is a bzip2 stream: bunzip2
// does not know the suffix and writes ".zip.out", which is what the next line expects.
constexpr char kCoreUpdate[] =
    "#!/bin/sh \n"
    "if [ -f '###/TesselCoreUpdate.zip' ] \n"
    "then \n"
    "bunzip2 -f '###/TesselCoreUpdate.zip' \n"
    "mv '###/TesselCoreUpdate.zip.out' '###/TesselCore' \n"
    "chmod +x '###/TesselCore' \n"
    "mv -f '/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore' "
    "'/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore.bck' \n"
    "mv -f '###/TesselCore' "
    "'/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore' \n"
    "chgrp -R admin '/Library/Application Support/Velto/TesselCore.app' \n"
    "chmod -R 775 '/Library/Application Support/Velto/TesselCore.app' \n"
    "fi \n";

// The tilde stands in quotes that keep the shell from expanding it: it is expanded when the file is
// written.
constexpr char kCoreUninstall[] =
    "#!/bin/sh \n"
    "rm -rf '/Library/Application Support/Velto/' \n"
    "rm -rf '~/Library/Application Support/TesselCore/' \n";

// The folder to delete.
constexpr char kRemoveDirectory[] =
    "#!/bin/sh \n"
    "rm -rf '%s'\n";

// The installer, and its arguments.
constexpr char kInstallAirApp[] =
    "#!/bin/sh \n"
    "'%s' %s\n";

// The old application's folder, the installer, and its arguments.
constexpr char kUpgradeAirApp[] =
    "#!/bin/sh \n"
    "rm -rf '%s'\n"
    "'%s' %s\n";

}  // namespace ScriptStrings
