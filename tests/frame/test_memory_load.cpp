// SPDX-License-Identifier: BSD-3-Clause
// The shared library opened, called and closed again and again: what it took, it gives back when it is unloaded.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

#include "tests/support/child.h"

namespace
{
using tesh_test::run_forked;

constexpr char library_file[] = TESH_BUILD_DIR "/libtesh.so";
constexpr int64_t n = 40;

using sgemm_fn = void (*)(int, int, int, int64_t, int64_t, int64_t, float, const float *, int64_t, const float *,
                          int64_t, float, float *, int64_t);
using allocate_fn = void *(*)(size_t, int32_t);
using deallocate_fn = void (*)(void *);

template <class Function> Function symbol(void *library, const char *name)
{
    return reinterpret_cast<Function>(dlsym(library, name));
}

bool product_is_right(sgemm_fn sgemm)
{
    float a[n * n], b[n * n], c[n * n];
    for (int64_t i = 0; i < n * n; ++i) {
        a[i] = float(i % 5 - 2);
        b[i] = float(i % 7 - 3);
        c[i] = 1.0f;
    }
    sgemm(102, 111, 111, n, n, n, 2.0f, a, n, b, n, 3.0f, c, n);
    for (int64_t j = 0; j < n; ++j) {
        for (int64_t i = 0; i < n; ++i) {
            float sum = 0.0f;
            for (int64_t l = 0; l < n; ++l)
                sum += a[i + l * n] * b[l + j * n];
            if (c[i + j * n] != 2.0f * sum + 3.0f)
                return false;
        }
    }
    return true;
}

// One life of the library: a product, cached blocks on this thread and on one that ends, and one on another thread that
// is given back here.
bool one_life()
{
    void *const library = dlopen(library_file, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        return false;
    const auto sgemm = symbol<sgemm_fn>(library, "cblas_sgemm");
    const auto allocate = symbol<allocate_fn>(library, "tesh_serv_allocate");
    const auto deallocate = symbol<deallocate_fn>(library, "tesh_serv_deallocate");
    bool good = product_is_right(sgemm);
    void *moved = nullptr;
    std::thread([&] {
        good = product_is_right(sgemm) && good;
        deallocate(allocate(30000, 64));
        moved = allocate(300000, 64);
    }).join();
    deallocate(allocate(100000, 64));
    deallocate(moved);
    return dlclose(library) == 0 && good;
}

struct footprint {
    size_t blocks_bytes; // [bytes] in use of the C library's allocator
    int mappings;        // [count]
    pthread_key_t key;   // the next one
};

footprint now()
{
    footprint f{};
    f.blocks_bytes = mallinfo2().uordblks;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        ++f.mappings;
    pthread_key_create(&f.key, nullptr);
    pthread_key_delete(f.key);
    return f;
}

TEST(shared_library, is_unloaded_by_its_last_close)
{
    const auto result = run_forked([] {
        if (!one_life())
            return 1;
        return dlopen(library_file, RTLD_NOW | RTLD_NOLOAD) == nullptr ? 0 : 2;
    });
    EXPECT_EQ(result.exit_code, 0) << result.err;
}

TEST(shared_library, does_not_grow_the_process_over_a_thousand_lives)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's own memory grows with every library that is opened";
#endif
    const auto result = run_forked([] {
        for (int i = 0; i < 20; ++i) {
            if (!one_life())
                return 1;
        }
        const footprint before = now();
        for (int i = 0; i < 1000; ++i) {
            if (!one_life())
                return 2;
        }
        const footprint after = now();
        std::fprintf(stderr, "bytes %zu -> %zu, mappings %d -> %d, key %u -> %u\n", before.blocks_bytes,
                     after.blocks_bytes, before.mappings, after.mappings, before.key, after.key);
        const bool same_blocks = after.blocks_bytes <= before.blocks_bytes + 4096;
        const bool same_mappings = after.mappings <= before.mappings + 4; // stacks of ended threads are kept for reuse
        return same_blocks && same_mappings && after.key == before.key ? 0 : 3;
    });
    EXPECT_EQ(result.exit_code, 0) << result.err;
}

// The finalizer works once. Keys that are made after it must still not outlive the code of their destructors.
TEST(shared_library, used_after_its_finalizer_leaves_no_thread_destructor_behind)
{
    const auto result = run_forked([] {
        const footprint before = now();
        bool good = true;
        std::thread([&] {
            void *const library = dlopen(library_file, RTLD_NOW | RTLD_LOCAL);
            symbol<void (*)()>(library, "tesh_serv_finalize")();
            good = product_is_right(symbol<sgemm_fn>(library, "cblas_sgemm"));
            const auto allocate = symbol<allocate_fn>(library, "tesh_serv_allocate");
            symbol<deallocate_fn>(library, "tesh_serv_deallocate")(allocate(3000, 64));
            symbol<void (*)()>(library, "tesh_serv_free_buffers")(); // nothing else does
            good = dlclose(library) == 0 && good;
        }).join(); // ends after the library is gone
        return good && now().key == before.key ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0) << "signal " << result.signal << result.err;
}

TEST(shared_library, leaves_no_fork_handler_and_no_thread_destructor_behind)
{
    const auto result = run_forked([] {
        bool good = true;
        std::thread([&] { good = one_life(); }).join(); // ends after the library is gone
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        int status = -1;
        waitpid(child, &status, 0);
        return good && status == 0 ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0) << result.err;
}
} // namespace
