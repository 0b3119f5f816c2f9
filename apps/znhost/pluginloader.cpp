#include "apps/znhost/pluginloader.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

namespace znhost {

namespace {

constexpr const char* kDefaultRelativePath = "../lib/remotectrl.so";
// Set by CMake from the install folders, relative to the installed znhost.
constexpr const char* kInstalledRelativePath = REMOTECTRL_INSTALLED_MODULE;

std::string lastDlError() {
    const char* message = dlerror();
    return message == nullptr ? "unknown error" : message;
}

}  // namespace

bool loadPlugin(const std::string& path, LoadedPlugin& loaded, std::string& error) {
    std::string openPath = path.find('/') == std::string::npos ? "./" + path : path;
    void* module = dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        error = "cannot load the plug-in " + path + ": " + lastDlError();
        return false;
    }
    auto entry = reinterpret_cast<zn::GetPluginFunction>(dlsym(module, zn::kGetPluginSymbol));
    if (entry == nullptr) {
        error = path + " is not a plug-in: it exports no " + zn::kGetPluginSymbol;
        dlclose(module);
        return false;
    }
    zn::IZnPlugin* plugin = entry();
    if (plugin == nullptr) {
        error = path + ": " + zn::kGetPluginSymbol + " returned no plug-in";
        dlclose(module);
        return false;
    }
    loaded.module = module;
    loaded.plugin = plugin;
    return true;
}

std::string defaultPluginPath() {
    char self[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return kDefaultRelativePath;
    std::string executable(self, static_cast<size_t>(length));
    size_t slash = executable.rfind('/');
    if (slash == std::string::npos) return kDefaultRelativePath;
    std::string installed = executable.substr(0, slash + 1) + kInstalledRelativePath;
    if (access(installed.c_str(), F_OK) == 0) return installed;
    return executable.substr(0, slash + 1) + kDefaultRelativePath;
}

}  // namespace znhost
