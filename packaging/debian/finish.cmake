# Run by CPack on the staged files, between installing them and packing: adds to each package the
# documents that every Debian package has, and compresses what is kept compressed.
find_program(GZIP gzip REQUIRED)
foreach(package libtaskwarden1 libtaskwarden-dev taskwarden)
  set(share ${CPACK_TEMPORARY_DIRECTORY}/${package}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog
       DESTINATION ${share}/doc/${package})
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${package}.lintian-overrides)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.lintian-overrides
                   ${share}/lintian/overrides/${package} COPYONLY)
  endif()
  file(GLOB pages ${share}/man/*/*)
  execute_process(COMMAND ${GZIP} -9n ${share}/doc/${package}/changelog ${pages}
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# The static library has no package of debug symbols. Its members bear no times.
find_program(STRIP strip REQUIRED)
file(GLOB_RECURSE archives
     ${CPACK_TEMPORARY_DIRECTORY}/libtaskwarden-dev${CPACK_PACKAGING_INSTALL_PREFIX}/*.a)
execute_process(COMMAND ${STRIP} --strip-debug --enable-deterministic-archives ${archives}
                COMMAND_ERROR_IS_FATAL ANY)
