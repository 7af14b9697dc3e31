// SPDX-License-Identifier: BSD-3-Clause
// Run by abi_virtual_processor under the preload library: loads the shared library, puts a recorder in the place of
// every path's member of every family, asks for the processor, calls every dispatcher and some public names, and prints
// which member each call reached. The members themselves do not run, so the machine need not have their instructions.
// With the argument "mode" it prints how it sees another processor; with "tiles" it configures matrix tiles after
// asking for them, with "tiles-unasked" without.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/detour.h"

namespace
{
const char *const paths[] = {"def", "cnr_def", "mc3", "avx2", "avx512"};
// Domain and name of each family; the second group has no cnr_def member.
struct family {
    const char *domain, *name;
    bool has_cnr_def;
};
const family families[] = {
    {"blas", "xsgemm", true},
    {"blas", "xsgemmger", true},
    {"blas", "xsgemv", true},
    {"blas", "xsger", true},
    {"blas", "xsaxpby", true},
    {"blas", "xsaxpy", true},
    {"blas", "xscopy", true},
    {"blas", "xsscal", true},
    {"blas", "xsswap", true},
    {"blas", "xsrot", true},
    {"blas", "xsnrm2", true},
    {"blas", "xstrmv", true},
    {"trans", "tesh_simatcopy", false},
    {"trans", "tesh_somatcopy", false},
    {"trans", "tesh_somatcopy2_seq", false},
};

int reached = -1;
template <int path> void record()
{
    reached = path;
}
void (*const recorders[])() = {record<0>, record<1>, record<2>, record<3>, record<4>};

void *library;
void *symbol(const std::string &name)
{
    void *address = dlsym(library, name.c_str());
    if (address == nullptr) {
        std::fprintf(stderr, "no symbol %s\n", name.c_str());
        std::exit(4);
    }
    return address;
}

template <class Function> Function *function(const std::string &name)
{
    return reinterpret_cast<Function *>(symbol(name));
}

void replace_members()
{
    for (const family &f : families) {
        for (int path = 0; path < 5; ++path) {
            if (path == 1 && !f.has_cnr_def)
                continue;
            const std::string name = std::string("tesh_") + f.domain + "_" + paths[path] + "_" + f.name;
            tesh_test::detour_address(symbol(name), reinterpret_cast<void *>(recorders[path]));
        }
    }
}

template <class Call> void report(const char *name, Call call)
{
    reached = -1;
    call();
    std::printf("%s %s\n", name, reached < 0 ? "none" : paths[reached]);
    std::fflush(stdout);
}

void optional_call(const char *name)
{
    if (void *address = dlsym(RTLD_DEFAULT, name))
        reinterpret_cast<void (*)()>(address)();
}

// A tile configuration, with or without the system's permission.
int use_tiles(bool ask)
{
    constexpr long request = 0x1023, tile_data = 18;
    if (ask && syscall(SYS_arch_prctl, request, tile_data) != 0)
        return 5;
    alignas(64) static const unsigned char config[64] = {1};
    __asm__ volatile(".byte 0xc4, 0xe2, 0x78, 0x49, 0x00" ::"a"(config) : "memory"); // ldtilecfg (%rax)
    std::printf("tiles");
    return 0;
}

void call_public_names()
{
    float x[16] = {1}, y[16] = {2}, z[16] = {3};
    report("cblas_saxpby", [&] {
        function<void(int64_t, float, const float *, int64_t, float, float *, int64_t)>("cblas_saxpby")(16, 2, x, 1, 3,
                                                                                                        y, 1);
    });
    report("cblas_sgemm", [&] {
        function<void(int, int, int, int64_t, int64_t, int64_t, float, const float *, int64_t, const float *, int64_t,
                      float, float *, int64_t)>("cblas_sgemm")(102, 111, 111, 4, 4, 4, 1, x, 4, y, 4, 0, z, 4);
    });
}
} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && std::strcmp(argv[1], "mode") == 0) {
        const auto mode = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "tesh_vcpu_mode"));
        std::printf("%s", mode == nullptr ? "none" : mode() == 1 ? "CPUID faults" : "single steps");
        return 0;
    }
    if (argc > 1 && std::strcmp(argv[1], "tiles") == 0)
        return use_tiles(true);
    if (argc > 1 && std::strcmp(argv[1], "tiles-unasked") == 0)
        return use_tiles(false);
    library = dlopen(TESH_BUILD_DIR "/libtesh.so", RTLD_NOW);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 3;
    }
    replace_members();
    using question = int32_t(void);
    question *detect = function<question>("tesh_serv_cpu_detect");
    int32_t (*cpu_type)(int32_t) = function<int32_t(int32_t)>("tesh_serv_get_cpu_type");
    int32_t (*branch)(int32_t) = function<int32_t(int32_t)>("tesh_serv_cbwr_get");
    int32_t (*amx)(void *) = function<int32_t(void *)>("tesh_serv_cpuhasamx");
    optional_call("tesh_vcpu_start");
    const int32_t setting = branch(-1), stored = detect(), fine = cpu_type(1), has_amx = amx(nullptr);
    optional_call("tesh_vcpu_stop");
    std::printf("setting %d stored %d fine %d amx %d\n", setting, stored, fine, has_amx);
    std::fflush(stdout);
    for (const family &f : families)
        report(f.name, function<void()>(std::string("tesh_") + f.domain + "_" + f.name));
    call_public_names();
    return 0;
}
