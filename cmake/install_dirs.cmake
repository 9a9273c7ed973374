# Where an installed tree keeps its parts (GNUInstallDirs; docs/HARDENING.md,
# "Installing and packages"). Included before the targets are defined: the
# development host is built with the installed module's and console files'
# paths relative to its own directory, so that an installed or unpacked tree
# runs from where it lies.
include(GNUInstallDirs)

# The stand-in platform libraries: in a directory of their own, reached only
# through the run paths of the host and the module, never the loader's path.
set(ISPIAAS_INSTALL_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/ispiaas)
set(ISPIAAS_INSTALL_CONSOLEDIR ${CMAKE_INSTALL_DATADIR}/ispiaas/console)

# From the executable's directory to the library and console directories,
# e.g. "../lib" and "../share/ispiaas/console".
file(RELATIVE_PATH ISPIAAS_BIN_TO_LIBDIR ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH ISPIAAS_BIN_TO_CONSOLEDIR ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_PREFIX}/${ISPIAAS_INSTALL_CONSOLEDIR})
