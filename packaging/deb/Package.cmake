# The Debian package: cpack -G DEB
#
# Links to the stand-in tools are left out, because a package would put them over programs that no package knows; they are
# alternatives, which the package's scripts make and take away.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tesselcore)
set(CPACK_PACKAGE_CONTACT "TesselCore developers <tesselcore@example.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Helper service of a desktop dock, with its command-line client")
set(CPACK_PACKAGE_DESCRIPTION
    "TesselCore does for a desktop dock what a sandboxed application cannot do itself: it installs, starts, stops and removes
applications, answers questions about the user and the system, and passes on what the pen of a tablet does. Clients talk to
it in short text commands on ports of the loopback.
.
The package holds the service, the tablet driver StylusPadDriver, the client tesselctl, and units for systemd that each
user enables for himself.")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_THREADS 2)

set(CPACK_COMPONENTS_ALL service)
if(TARGET StylusPadDriver)
  list(APPEND CPACK_COMPONENTS_ALL driver)
endif()
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# What the programs are linked with is found by dpkg-shlibdeps; the rest is loaded or run when it is needed. Without property
# lists the service does not know its own bundle.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libplist3 | libplist-2.0-4")
string(
  JOIN
  ", "
  CPACK_DEBIAN_PACKAGE_RECOMMENDS
  # who is logged in, which tablets are there, icons
  libsystemd0
  libudev1
  "libpng16-16 | libpng16-16t64"
  # updates, and the stand-ins for ditto and installer
  bzip2
  libarchive-tools
  libplist-utils
  # administrator rights, documents, alerts
  "pkexec | sudo"
  xdg-utils
  "zenity | kdialog")

set(scripts ${CMAKE_CURRENT_BINARY_DIR}/deb)
foreach(script postinst prerm)
  configure_file(deb/${script}.in ${scripts}/${script} @ONLY)
  file(CHMOD ${scripts}/${script} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                              WORLD_EXECUTE)
endforeach()
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${scripts}/postinst ${scripts}/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
