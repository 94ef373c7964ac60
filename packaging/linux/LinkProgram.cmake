# Run at installation: lets people find the service where they look for programs.
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
set(link "$ENV{DESTDIR}${prefix}/${programs_folder}/TesselCore")
get_filename_component(folder "${link}" DIRECTORY)
file(MAKE_DIRECTORY "${folder}")
file(CREATE_LINK "${program}" "${link}" SYMBOLIC)
message(STATUS "Linked: ${link}")
