#include "install_paths.h"

#include <filesystem>
#include <system_error>

// Compile-time paths, from devhost/CMakeLists.txt: ISPIAAS_DEFAULT_MODULE and
// ISPIAAS_CONSOLE_DIR in the build and source trees; ISPIAAS_INSTALLED_MODULE
// and ISPIAAS_INSTALLED_CONSOLE relative to the installed executable's
// directory, from the install directories.

namespace devhost {

InstallPaths InstallPathsFor(const std::string& exeDir)
{
    namespace fs = std::filesystem;
    const fs::path dir(exeDir);
    const fs::path module = (dir / ISPIAAS_INSTALLED_MODULE).lexically_normal();
    std::error_code error;
    if (!exeDir.empty() && fs::is_regular_file(module, error)) {
        return {module.string(), (dir / ISPIAAS_INSTALLED_CONSOLE).lexically_normal().string()};
    }
    return {ISPIAAS_DEFAULT_MODULE, ISPIAAS_CONSOLE_DIR};
}

const InstallPaths& HostInstallPaths()
{
    static const InstallPaths paths = [] {
        std::error_code error;
        const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
        return InstallPathsFor(error ? std::string() : exe.parent_path().string());
    }();
    return paths;
}

}  // namespace devhost
