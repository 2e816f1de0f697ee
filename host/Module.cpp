// Run-time loading of plug-in modules.
#include "host/Module.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>
#include <set>

#include "host/Op.h"

namespace host {

void loadModule(const std::string& path) {
    static std::mutex mutex;
    static std::set<std::string> loaded;
    std::scoped_lock lock(mutex);

    std::error_code ec;
    const std::string key = std::filesystem::weakly_canonical(path, ec).string();
    if (loaded.count(key) != 0) {
        return;
    }
    if (!std::filesystem::is_regular_file(path, ec)) {
        throw ModuleError("host: cannot load module " + path + ": no such file");
    }
    const long before = Op::Description::constructed();
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = dlerror();
        throw ModuleError("host: cannot load module " + path + ": " +
                          (why != nullptr ? why : "unknown error"));
    }
    if (Op::Description::constructed() == before) {
        dlclose(handle);
        throw ModuleError("host: module " + path + " registers no operator");
    }
    loaded.insert(key);
}

}  // namespace host
