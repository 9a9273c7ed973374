# Where an installed tree keeps its parts (GNUInstallDirs; docs/HARDENING.md,
# "Installing and packages"). Included before the targets are defined: the
# development host is built with the installed module's and console files'
# paths relative to its own directory, so that an installed or unpacked tree
# runs from where it lies.
include(GNUInstallDirs)

# The module is a plug-in, loaded by its file name, not a library programs
# link against: it lies in a directory of the project's own under the
# multiarch library directory (lib/x86_64-linux-gnu/ispiaas,
# lib/arm-linux-gnueabihf/ispiaas), off the loader's path, with the stand-in
# platform libraries beside it. GNUInstallDirs names the multiarch directory
# only for the prefix /usr, and the presets keep the default prefix, so the
# triplet is added here where the library directory lacks it.
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT CMAKE_INSTALL_LIBDIR MATCHES "/${CMAKE_LIBRARY_ARCHITECTURE}$")
  set(ISPIAAS_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/${CMAKE_LIBRARY_ARCHITECTURE}/ispiaas)
else()
  set(ISPIAAS_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/ispiaas)
endif()
set(ISPIAAS_INSTALL_CONSOLEDIR ${CMAKE_INSTALL_DATADIR}/ispiaas/console)

# From the executable's directory to the plug-in and console directories,
# e.g. "../lib/x86_64-linux-gnu/ispiaas" and "../share/ispiaas/console".
file(RELATIVE_PATH ISPIAAS_BIN_TO_PLUGINDIR ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_PREFIX}/${ISPIAAS_INSTALL_PLUGINDIR})
file(RELATIVE_PATH ISPIAAS_BIN_TO_CONSOLEDIR ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_PREFIX}/${ISPIAAS_INSTALL_CONSOLEDIR})
