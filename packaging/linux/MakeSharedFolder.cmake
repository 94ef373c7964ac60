# Run at installation: makes the folder that all users share, where it is missing. Everybody may write there, and take away
# only what is his own.
set(folder "$ENV{DESTDIR}/Users/Shared")
if(IS_DIRECTORY "${folder}")
  message(STATUS "Up-to-date: ${folder}")
else()
  # The folders above it are made for everybody to enter, whoever installs.
  execute_process(COMMAND sh -c "umask 022 && mkdir -p \"$1\" && chmod 1777 \"$1\"" sh "${folder}" RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "Cannot make ${folder}")
  endif()
  message(STATUS "Made: ${folder}")
endif()
