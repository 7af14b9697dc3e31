// SPDX-License-Identifier: BSD-3-Clause
// Peers: loaded at run time, their routines found by name and suffix.
#include "bench/support/peers.h"

#include <dlfcn.h>

#include <cstdio>

namespace
{
constexpr const char *openblas_files[] = {"/usr/lib/x86_64-linux-gnu/openblas64-serial/libopenblas64.so.0",
                                          "libopenblas64.so.0"};
constexpr const char *blis_files[] = {"/usr/lib/x86_64-linux-gnu/blis64-serial/libblis64.so.4", "libblis64.so.4"};
constexpr const char *suffixes[] = {"", "64_", "_64"};

std::string symbol(const std::string &routine, const std::string &suffix, bool underscore)
{
    if (!underscore)
        return routine + suffix;
    return suffix == "64_" ? routine + "_64_" : suffix == "_64" ? routine + "_64_" : routine + suffix + "_";
}

std::string core_of(void *handle, const std::string &suffix)
{
    if (void *f = dlsym(handle, ("openblas_get_corename" + suffix).c_str()))
        return reinterpret_cast<const char *(*)()>(f)();
    void *init = dlsym(handle, "bli_init"), *query = dlsym(handle, "bli_arch_query_id");
    void *text = dlsym(handle, "bli_arch_string");
    if (init != nullptr && query != nullptr && text != nullptr) {
        reinterpret_cast<void (*)()>(init)(); // it asks for the forced configuration here
        return reinterpret_cast<const char *(*)(int)>(text)(reinterpret_cast<int (*)()>(query)());
    }
    return "?";
}

// Opens a library and finds how its names end.
bool open_peer(const std::string &name, const std::string &file, const std::string *given, tesh_bench::peer &out)
{
    out.handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (out.handle == nullptr)
        return false;
    out.name = name;
    bool found = given != nullptr;
    if (found)
        out.suffix = *given;
    for (const char *suffix : suffixes) {
        if (found)
            break;
        out.suffix = suffix;
        found = dlsym(out.handle, symbol("sgemm", suffix, true).c_str()) != nullptr;
    }
    if (!found) {
        std::printf("# peer %s: no sgemm under a known name\n", file.c_str());
        return false;
    }
    out.core = core_of(out.handle, out.suffix);
    std::printf("# peer %s: %s, kernels: %s\n", name.c_str(), file.c_str(), out.core.c_str());
    return true;
}

template <std::size_t count>
void add_installed(const char *name, const char *const (&files)[count], std::vector<tesh_bench::peer> &peers)
{
    for (const char *file : files) {
        tesh_bench::peer found;
        if (open_peer(name, file, nullptr, found)) {
            peers.push_back(found);
            return;
        }
    }
    std::printf("# peer %s: not installed\n", name);
}
} // namespace

void *tesh_bench::peer::find(const char *routine, bool underscore) const
{
    return dlsym(handle, symbol(routine, suffix, underscore).c_str());
}

std::vector<tesh_bench::peer> tesh_bench::load_peers(const settings &run)
{
    std::vector<peer> peers;
    if (run.installed_peers) {
        add_installed("openblas", openblas_files, peers);
        add_installed("blis", blis_files, peers);
    }
    for (const std::string &named : run.peers) {
        const std::size_t colon = named.find(':');
        const std::string file = named.substr(0, colon);
        const std::string suffix = colon == std::string::npos ? "" : named.substr(colon + 1);
        peer found;
        if (open_peer(file.substr(file.rfind('/') + 1), file, colon == std::string::npos ? nullptr : &suffix, found))
            peers.push_back(found);
        else
            std::printf("# peer %s: not loaded (%s)\n", file.c_str(), dlerror());
    }
    return peers;
}
