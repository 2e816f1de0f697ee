// Loading plug-in modules at run time.
#pragma once

#include <stdexcept>
#include <string>

namespace host {

/// A module that could not be loaded; what() says which file and why.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Loads the plug-in module `path` (a shared object) into the process, which runs its static
/// registrations. Loading a module already loaded does nothing. Modules stay loaded for the
/// life of the process, as the operators they registered may be in use.
/// Throws ModuleError when the file cannot be loaded or constructs no operator description.
void loadModule(const std::string& path);

}  // namespace host
