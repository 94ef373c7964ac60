# Run at installation: makes the links by which the service finds its tools.
#
# Nothing that is there already is replaced, and nothing is put beside a program of the same name that the search path leads
# to. A link that cannot be made is said and is no error, because whoever installs for himself alone may not write everywhere.
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)

function(link_tool name place)
  set(tool "${prefix}/${tools_folder}/${name}")
  set(link "$ENV{DESTDIR}${place}")
  set(found "")
  if(IS_SYMLINK "${link}")
    file(READ_SYMLINK "${link}" found)
  elseif(EXISTS "${link}")
    set(found "${link}")
  elseif("$ENV{DESTDIR}" STREQUAL "")
    execute_process(COMMAND sh -c "command -v ${name}" OUTPUT_VARIABLE found ERROR_QUIET
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
  endif()
  if(found STREQUAL "${tool}")
    message(STATUS "Up-to-date: ${link}")
    return()
  elseif(NOT found STREQUAL "")
    message(STATUS "Left alone: ${name} is there already (${found})")
    return()
  endif()
  get_filename_component(folder "${link}" DIRECTORY)
  execute_process(COMMAND mkdir -p "${folder}" ERROR_QUIET)
  file(CREATE_LINK "${tool}" "${link}" RESULT result SYMBOLIC)
  if(result EQUAL 0)
    message(STATUS "Linked: ${link}")
  else()
    message(STATUS "Not linked: ${link} (${result})")
  endif()
endfunction()

link_tool(installer /usr/sbin/installer)
link_tool(ditto "${prefix}/${programs_folder}/ditto")
