# Debian packages by CPack; scripts/package makes them. The files of a component are one package,
# whose documents debian/finish.cmake adds.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_SOURCE taskwarden)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/finish.cmake)

set(CPACK_COMPONENTS_ALL libtaskwarden1 libtaskwarden-dev taskwarden)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_LIBTASKWARDEN-DEV_DEPENDS libtaskwarden1)
set(CPACK_COMPONENT_TASKWARDEN_DEPENDS libtaskwarden1)
set(CPACK_DEBIAN_TASKWARDEN_PACKAGE_DEPENDS
    "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Task Warden maintainers <maintainers@taskwarden.example>"
    CACHE STRING "Who answers for the Debian packages")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The program is linked with the library of another package of the same build.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# package(COMPONENT SECTION WHAT LINE): `what` it is for the synopsis, and the last line about it.
function(package component section what line)
  string(TOUPPER ${component} name)
  set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_COMPONENT_${name}_DESCRIPTION
      "watch processes and explain what grew - ${what}
Task Warden compares every process of the machine with its own baseline and,
when one grows, says what grew: which thread names, which open files, which of
18 kinds of memory.

${line}"
      PARENT_SCOPE)
endfunction()
package(libtaskwarden1 libs "library"
        "This package has the library that a program loads and gives one thread to.")
package(libtaskwarden-dev libdevel "development files"
        "This package has what it takes to build programs that use the library.")
package(taskwarden admin "program"
        "This package has the program, which watches, takes the records of other
watchdogs and looks into single processes, and a service that watches.")
set(CPACK_DEBIAN_LIBTASKWARDEN1_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_DEBIAN_TASKWARDEN_PACKAGE_CONTROL_EXTRA conffiles postinst prerm postrm)
list(TRANSFORM CPACK_DEBIAN_TASKWARDEN_PACKAGE_CONTROL_EXTRA
     PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/debian/)
include(CPack)
