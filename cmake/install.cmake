# What `cmake --install` installs (DESTDIR and --prefix honoured) and the Debian
# package cpack makes of the same tree (docs/HARDENING.md, "Installing and
# packages"). The build decides which package it is:
# - with the development host (the native build), the workstation's package
#   `ispiaas`: the host, the module, the stand-in platform libraries in a
#   private directory, the console files and the documents;
# - without it (the cross build for the camera), the camera's package
#   `libqtnapiispiaas`: the module alone, which finds the camera's own
#   platform libraries on the loader's path.
# Run paths are relative to the installed files ($ORIGIN), so that a tree
# unpacked anywhere runs from where it lies.

# Installing takes what is built and builds nothing: scripts/package builds
# the installed targets only, not the test suite.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS qtnapiIspIaas LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

if(ISPIAAS_DEVHOST)
  set(ISPIAAS_STANDINS securec log kxapicommon ability wiro)
  install(TARGETS ${ISPIAAS_STANDINS} LIBRARY DESTINATION ${ISPIAAS_INSTALL_PRIVATE_LIBDIR})
  install(TARGETS ispiaas-devhost RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  file(RELATIVE_PATH lib_to_private ${CMAKE_INSTALL_FULL_LIBDIR}
       ${CMAKE_INSTALL_PREFIX}/${ISPIAAS_INSTALL_PRIVATE_LIBDIR})
  set_target_properties(ispiaas-devhost PROPERTIES
    INSTALL_RPATH "$ORIGIN/${ISPIAAS_BIN_TO_LIBDIR}/${lib_to_private}")
  set_target_properties(qtnapiIspIaas PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_to_private}")

  if(EXISTS ${PROJECT_SOURCE_DIR}/devhost/http/console)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/devhost/http/console/ DESTINATION ${ISPIAAS_INSTALL_CONSOLEDIR})
  endif()
  # README.md beside docs/, so that its links into docs/ hold.
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()

# The package: one version (the project's), dependencies computed from the
# binaries by dpkg-shlibdeps (dpkg-dev), stripped binaries.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "ispiaas maintainers <maintainers@users.noreply.c-seed-1ca3ebc7.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
if(ISPIAAS_DEVHOST)
  set(CPACK_PACKAGE_NAME ispiaas)
  set(CPACK_DEBIAN_PACKAGE_SECTION devel)
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "ISP settings module of the camera's HTTP access server, with its development host")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "\
ispiaas-devhost runs the module libqtnapiIspIaas.so on a simulated camera (ISP
service and control process) and serves its resources over HTTP, with a
console. The stand-in platform libraries it runs with are kept in a private
directory.")
  # FUSE's tools: the host mounts the simulated device nodes with libfuse3.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS fuse3)
else()
  set(CPACK_PACKAGE_NAME libqtnapiispiaas)
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "ISP settings module of the camera's HTTP access server")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "\
libqtnapiIspIaas.so, loaded by the camera's HTTP access server, which also
provides the platform libraries the module links against.")
endif()
# The Debian architecture of the target, e.g. armhf for the cross build (from
# the toolchain's triple); the build machine's otherwise.
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
                  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
                  ERROR_QUIET)
  if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
    message(WARNING "dpkg-architecture (dpkg-dev) gave no Debian architecture for ${CMAKE_LIBRARY_ARCHITECTURE}")
  endif()
endif()
include(CPack)
