# What `cmake --install` installs (DESTDIR and --prefix honoured) and the Debian
# package cpack makes of the same tree (docs/HARDENING.md, "Installing and
# packages"). The build decides which package it is:
# - with the development host (the native build), the workstation's package
#   `ispiaas`: the host and its manual page, the module with the stand-in
#   platform libraries in their plug-in directory, the console files and the
#   documents;
# - without it (the cross build for the camera), the camera's package
#   `libqtnapiispiaas`: the module alone, in its plug-in directory, which
#   finds the camera's own platform libraries on the loader's path.
# Each package also has its copyright file (from LICENSE) and changelog (from
# packaging/changelog.in, with the project's version). Run paths are relative
# to the installed files ($ORIGIN), so that a tree unpacked anywhere runs from
# where it lies.

# Installing takes what is built and builds nothing: scripts/package builds
# the installed targets only, not the test suite.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "ispiaas maintainers <maintainers@users.noreply.c-seed-1ca3ebc7.example>")
if(ISPIAAS_DEVHOST)
  set(CPACK_PACKAGE_NAME ispiaas)
else()
  set(CPACK_PACKAGE_NAME libqtnapiispiaas)
endif()
# Debian keeps a package's copyright file and changelog in a directory named
# for the package.
set(ISPIAAS_PACKAGE_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_PACKAGE_NAME})

install(TARGETS qtnapiIspIaas LIBRARY DESTINATION ${ISPIAAS_INSTALL_PLUGINDIR})

# The date of the changelog's entry and of the manual page: SOURCE_DATE_EPOCH
# when it is set, else the time of the commit the sources are at, else now;
# so that two builds of one commit make the same files.
set(ISPIAAS_SOURCE_DATE_EPOCH "$ENV{SOURCE_DATE_EPOCH}")
if(NOT ISPIAAS_SOURCE_DATE_EPOCH)
  execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
                  OUTPUT_VARIABLE ISPIAAS_SOURCE_DATE_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT ISPIAAS_SOURCE_DATE_EPOCH)
  string(TIMESTAMP ISPIAAS_SOURCE_DATE_EPOCH "%s" UTC)
endif()
set(saved_epoch "$ENV{SOURCE_DATE_EPOCH}")
set(ENV{SOURCE_DATE_EPOCH} ${ISPIAAS_SOURCE_DATE_EPOCH})
string(TIMESTAMP ISPIAAS_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(ENV{SOURCE_DATE_EPOCH} "${saved_epoch}")

# The copyright file, in Debian's machine-readable format: the copyright line
# and the text of LICENSE, the project's own statement of its licence.
file(READ ${PROJECT_SOURCE_DIR}/LICENSE license)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/LICENSE)
if(NOT license MATCHES "^Copyright ([^\n]+)\n\n(.+)$")
  message(FATAL_ERROR "LICENSE begins with its copyright line (\"Copyright YEARS HOLDERS\"), then a blank line")
endif()
set(ISPIAAS_COPYRIGHT "${CMAKE_MATCH_1}")
string(STRIP "${CMAKE_MATCH_2}" ISPIAAS_LICENSE_TEXT)
string(REGEX REPLACE "\n[ \t]*\n" "\n.\n" ISPIAAS_LICENSE_TEXT "${ISPIAAS_LICENSE_TEXT}")
string(REPLACE "\n" "\n " ISPIAAS_LICENSE_TEXT " ${ISPIAAS_LICENSE_TEXT}")
set(packaging ${CMAKE_BINARY_DIR}/packaging)
configure_file(${PROJECT_SOURCE_DIR}/packaging/copyright.in ${packaging}/copyright @ONLY)

# The changelog, compressed as Debian's tools do it (gzip -9n: best
# compression, no name and no time in the header).
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${packaging}/changelog @ONLY)
if(NOT EXISTS ${packaging}/changelog.gz OR ${packaging}/changelog IS_NEWER_THAN ${packaging}/changelog.gz)
  execute_process(COMMAND gzip -9nc ${packaging}/changelog OUTPUT_FILE ${packaging}/changelog.gz
                  COMMAND_ERROR_IS_FATAL ANY)
endif()
install(FILES ${packaging}/copyright ${packaging}/changelog.gz DESTINATION ${ISPIAAS_PACKAGE_DOCDIR})

if(ISPIAAS_DEVHOST)
  set(ISPIAAS_STANDINS securec log kxapicommon ability wiro)
  install(TARGETS ${ISPIAAS_STANDINS} LIBRARY DESTINATION ${ISPIAAS_INSTALL_PLUGINDIR})
  install(TARGETS ispiaas-devhost RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The stand-ins lie beside the module, in the plug-in directory.
  set_target_properties(ispiaas-devhost PROPERTIES INSTALL_RPATH "$ORIGIN/${ISPIAAS_BIN_TO_PLUGINDIR}")
  set_target_properties(qtnapiIspIaas PROPERTIES INSTALL_RPATH "$ORIGIN")

  if(EXISTS ${PROJECT_SOURCE_DIR}/devhost/http/console)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/devhost/http/console/ DESTINATION ${ISPIAAS_INSTALL_CONSOLEDIR})
  endif()
  # README.md beside docs/, so that its links into docs/ hold.
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${ISPIAAS_PACKAGE_DOCDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${ISPIAAS_PACKAGE_DOCDIR})

  # The manual page ispiaas-devhost(1), made by help2man from the host's own
  # --help (packaging/help-for-man puts its synopsis in help2man's form) and
  # the sections --help does not cover (packaging/ispiaas-devhost.h2m.in), so
  # that it follows the host's options. Its paths are the package's.
  find_program(ISPIAAS_HELP2MAN help2man)
  if(NOT ISPIAAS_HELP2MAN)
    message(FATAL_ERROR "help2man, which makes the manual page, is missing: run scripts/install-deps")
  endif()
  set(ISPIAAS_MAN_PLUGINDIR ${CPACK_PACKAGING_INSTALL_PREFIX}/${ISPIAAS_INSTALL_PLUGINDIR})
  set(ISPIAAS_MAN_CONSOLEDIR ${CPACK_PACKAGING_INSTALL_PREFIX}/${ISPIAAS_INSTALL_CONSOLEDIR})
  set(ISPIAAS_MAN_DOCDIR ${CPACK_PACKAGING_INSTALL_PREFIX}/${ISPIAAS_PACKAGE_DOCDIR})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/ispiaas-devhost.h2m.in ${packaging}/ispiaas-devhost.h2m @ONLY)
  add_custom_command(
    OUTPUT ${packaging}/ispiaas-devhost.1.gz
    COMMAND ${CMAKE_COMMAND} -E env ISPIAAS_DEVHOST=$<TARGET_FILE:ispiaas-devhost>
            SOURCE_DATE_EPOCH=${ISPIAAS_SOURCE_DATE_EPOCH}
            ${ISPIAAS_HELP2MAN} --no-info --version-string "ispiaas-devhost ${PROJECT_VERSION}"
            --name "run the camera's ISP settings module on a simulated camera, over HTTP"
            --include ${packaging}/ispiaas-devhost.h2m --output ${packaging}/ispiaas-devhost.1
            ${PROJECT_SOURCE_DIR}/packaging/help-for-man
    COMMAND gzip -9nf ${packaging}/ispiaas-devhost.1
    DEPENDS ispiaas-devhost ${PROJECT_SOURCE_DIR}/packaging/help-for-man ${packaging}/ispiaas-devhost.h2m
            ${packaging}/changelog
    COMMENT "Writing the manual page ispiaas-devhost(1)"
    VERBATIM)
  add_custom_target(ispiaas-devhost-manpage ALL DEPENDS ${packaging}/ispiaas-devhost.1.gz)
  install(FILES ${packaging}/ispiaas-devhost.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

# The package: one version (the project's), dependencies computed from the
# binaries by dpkg-shlibdeps (dpkg-dev), stripped binaries. Both packages come
# from one source, ispiaas. No maintainer scripts: nothing is installed on the
# loader's path, so there is no cache for ldconfig to renew.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SOURCE ispiaas)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
if(ISPIAAS_DEVHOST)
  set(CPACK_DEBIAN_PACKAGE_SECTION devel)
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "camera ISP settings module, with a development host to run it")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "\
libqtnapiIspIaas.so is the plug-in of a network camera's HTTP access server
through which clients read and change the settings of the camera's image
signal processor: image tuning, focus, thermal imaging and maintenance resets.
This package runs it on a workstation, with no camera:
 - ispiaas-devhost, which loads the module, runs it on a simulated camera and
   serves its resources over HTTP (127.0.0.1:8080 by default), with a browser
   console, the API document (OpenAPI 3.1) at /openapi.json, and routes to
   inspect the simulated device and arm faults in it;
 - the module, with stand-ins for the camera's platform libraries, in a
   private directory;
 - the manual page, and the documents: every resource with a real answer,
   the API document and how to generate a client from it.
")
  # FUSE's tools: the host mounts the simulated device nodes with libfuse3.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS fuse3)
else()
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "camera ISP settings module for the camera's HTTP access server")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "\
libqtnapiIspIaas.so is the plug-in of a network camera's HTTP access server
through which clients read and change the settings of the camera's image
signal processor: image tuning, focus, thermal imaging and maintenance resets.
The server loads it by its file name from the plug-in directory
${CPACK_PACKAGING_INSTALL_PREFIX}/${ISPIAAS_INSTALL_PLUGINDIR}; the camera provides the
platform libraries the module links against.
")
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
