// AmiLibrary: dlopen/dlsym wrapper for AMI model libraries.
#include "tools/host/AmiLibrary.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include "tools/base/HostError.h"

namespace amihost {

AmiLibrary::AmiLibrary(const std::string& path) : m_sPath(path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        throw HostError(ExitCode::kMissingLibrary, "model library not found: " + path);
    // A bare file name would send dlopen searching the system paths; the
    // user means the file in the current directory.
    const std::string where = path.find('/') == std::string::npos ? "./" + path : path;
    m_pHandle = ::dlopen(where.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_pHandle == nullptr) {
        const char* why = ::dlerror();
        throw HostError(ExitCode::kMissingLibrary,
                        "cannot load model library " + path + ": " + (why != nullptr ? why : "unknown reason"));
    }
    Init = reinterpret_cast<AmiInitFn>(::dlsym(m_pHandle, "AMI_Init"));
    GetWave = reinterpret_cast<AmiGetWaveFn>(::dlsym(m_pHandle, "AMI_GetWave"));
    Close = reinterpret_cast<AmiCloseFn>(::dlsym(m_pHandle, "AMI_Close"));
    std::string missing;
    if (Init == nullptr) missing += " AMI_Init";
    if (GetWave == nullptr) missing += " AMI_GetWave";
    if (Close == nullptr) missing += " AMI_Close";
    if (!missing.empty()) {
        ::dlclose(m_pHandle);
        m_pHandle = nullptr;
        throw HostError(ExitCode::kMissingSymbols, "model library " + path + " does not export:" + missing);
    }
}

AmiLibrary::~AmiLibrary() {
    if (m_pHandle != nullptr) ::dlclose(m_pHandle);
}

}  // namespace amihost
