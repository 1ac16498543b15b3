# Fails unless the component "daemon", and an installation that names no
# component, hold the bundle's files and none of the package.

foreach(component "" "--component;daemon")
  file(REMOVE_RECURSE ${STAGE})
  execute_process(
    COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${STAGE}
            ${component} COMMAND_ERROR_IS_FATAL ANY)
  if(NOT EXISTS ${STAGE}/Contents/MacOS/launcher)
    message(FATAL_ERROR "The launcher was not installed.")
  endif()
  file(GLOB_RECURSE files RELATIVE ${STAGE} ${STAGE}/*)
  foreach(file IN LISTS files)
    if(file MATCHES "tamrel|Tamrel|\\.a$|\\.h$")
      message(FATAL_ERROR "${file} belongs to the package.")
    endif()
  endforeach()
endforeach()
