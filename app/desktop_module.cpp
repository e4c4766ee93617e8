#include "app/desktop_module.h"

#include <dlfcn.h>

#include "core/support/environment.h"

namespace holdenmere {
namespace {

constexpr const char* kReinstall = " Reinstall Holdenmere to get it back; the command-line modes work without it "
                                   "(see 'Holdenmere --help').";

std::string lastLoaderError(const char* fallback) {
    const char* text = ::dlerror();
    return text != nullptr ? text : fallback;
}

}  // namespace

std::filesystem::path DesktopModule::location(const std::filesystem::path& executable) {
    return executable.parent_path().parent_path() / "PlugIns" / HOLDENMERE_DESKTOP_MODULE_NAME;
}

std::variant<HoldenmereDesktopMain, std::string> DesktopModule::open(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        return "Holdenmere: the desktop app is missing from this installation (" + path.string() + ")." + kReinstall;
    }
    // The module carries its own copy of the core, linked so that it binds
    // to itself (see app/desktop/CMakeLists.txt); nothing of it is made
    // global for what the process loads later.
    void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        return "Holdenmere: the desktop app could not be loaded from " + path.string() + ": " +
               lastLoaderError("unknown error") + "." + kReinstall;
    }
    const auto* interface = static_cast<const int*>(::dlsym(module, "holdenmere_desktop_interface"));
    void* entry = ::dlsym(module, "holdenmere_desktop_main");
    if (interface == nullptr || entry == nullptr || *interface != HOLDENMERE_DESKTOP_INTERFACE) {
        ::dlclose(module);
        return "Holdenmere: the desktop app at " + path.string() + " belongs to another build of Holdenmere." +
               kReinstall;
    }
    // Kept open for the life of the process: the app runs until it quits.
    return reinterpret_cast<HoldenmereDesktopMain>(entry);
}

int DesktopModule::run(int& argc, char** argv, bool openedQuietly, std::ostream& err) {
    const auto executable = executablePath();
    if (!executable) {
        err << "Holdenmere: the desktop app cannot be found: this program's own path is unknown.\n";
        return 1;
    }
    auto opened = open(location(*executable));
    if (const auto* failure = std::get_if<std::string>(&opened)) {
        err << *failure << '\n';
        return 1;
    }
    return std::get<HoldenmereDesktopMain>(opened)(&argc, argv, openedQuietly ? 1 : 0);
}

}  // namespace holdenmere
