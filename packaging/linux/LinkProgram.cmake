# Run at installation: lets people find ${program}, which lies in its bundle, where they look for programs.
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
get_filename_component(name "${program}" NAME)
set(link "$ENV{DESTDIR}${prefix}/${programs_folder}/${name}")
get_filename_component(folder "${link}" DIRECTORY)
file(MAKE_DIRECTORY "${folder}")
file(CREATE_LINK "${program}" "${link}" SYMBOLIC)
message(STATUS "Linked: ${link}")
