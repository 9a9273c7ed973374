// Where the development host finds the module and the console files.
//
// An installed or unpacked tree (`dpkg -x`, `cmake --install`) is recognised
// by the module lying where the install rules put it relative to the
// executable; its paths are then taken relative to the running executable,
// so that the tree runs from wherever it lies. A host run from its build tree
// uses the build tree's module and the console files of the sources.
#pragma once

#include <string>

namespace devhost {

struct InstallPaths {
    std::string module;   // the module loaded when --module is not given
    std::string console;  // the directory of the console files
};

// The paths for an executable in `exeDir`.
InstallPaths InstallPathsFor(const std::string& exeDir);

// The paths for the running executable (/proc/self/exe).
const InstallPaths& HostInstallPaths();

}  // namespace devhost
