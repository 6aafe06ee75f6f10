# Installs the build in BUILD_FOLDER into an empty ROOT; DESTDIR is set to that.
file(REMOVE_RECURSE ${ROOT})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_FOLDER} RESULT_VARIABLE result)
if(result)
  message(FATAL_ERROR "Nothing was installed: ${result}")
endif()
