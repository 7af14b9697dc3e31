// SPDX-License-Identifier: BSD-3-Clause
// The installed tree: what is in it, and that pkg-config finds it wherever it was put.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include "tests/support/child.h"

namespace
{
namespace fs = std::filesystem;
using tesh_test::run_program;

class installed_tree : public testing::Test
{
protected:
    void SetUp() override
    {
        prefix_ = testing::TempDir() + "tesh installed " + std::to_string(getpid());
        const auto made =
            run_program({"/bin/sh", "-c", "cmake --install \"$0\" --prefix \"$1\"", TESH_BUILD_DIR, prefix_});
        ASSERT_EQ(made.exit_code, 0) << made.err;
        for (const auto &entry : fs::recursive_directory_iterator(prefix_)) {
            if (entry.path().filename() == "tesh.pc")
                pkgconfig_ = entry.path().parent_path();
        }
        ASSERT_FALSE(pkgconfig_.empty());
    }
    void TearDown() override { fs::remove_all(prefix_); }

    // The value of a variable of tesh.pc.
    fs::path variable(const std::string &name) const
    {
        const auto result = run_program({"/bin/sh", "-c", "pkg-config --variable=" + name + " tesh"},
                                        {{"PKG_CONFIG_PATH", pkgconfig_.string()}});
        EXPECT_EQ(result.exit_code, 0) << result.err;
        std::string value = result.out.substr(0, result.out.find('\n'));
        for (std::size_t at; (at = value.find('\\')) != std::string::npos;) // blanks are quoted
            value.erase(at, 1);
        return value;
    }

    std::string prefix_;
    fs::path pkgconfig_;
};
} // namespace

TEST_F(installed_tree, is_found_by_pkg_config_under_any_prefix)
{
    EXPECT_TRUE(fs::equivalent(variable("prefix"), prefix_)) << variable("prefix");
    for (const char *file : {"libtesh.so", "libtesh.so.2", "libtesh.a"})
        EXPECT_TRUE(fs::exists(variable("libdir") / file)) << file;
}

TEST_F(installed_tree, has_the_public_headers_and_no_others)
{
    std::set<std::string> found;
    for (const auto &entry : fs::directory_iterator(variable("includedir")))
        found.insert(entry.path().filename());
    EXPECT_EQ(found, (std::set<std::string>{"tesh.h", "tesh_blas.h", "tesh_lapack.h", "tesh_serv.h", "tesh_trans.h",
                                            "tesh_types.h"}));
}

TEST_F(installed_tree, serves_a_c_program_in_both_forms_without_a_cxx_runtime)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the library needs the sanitizer's runtime";
#endif
    const std::string libdir = variable("libdir"), program = prefix_ + "/first_call";
    const std::string forms[] = {"-L'" + libdir + "' -ltesh -Wl,-rpath,'" + libdir + "'",
                                 "'" + libdir + "/libtesh.a' -lm"};
    for (const std::string &form : forms) {
        const auto built = run_program({"/bin/sh", "-c",
                                        "cc -std=c99 -o '" + program + "' " TESH_SOURCE_DIR "/demo/first_call.c -I'" +
                                            variable("includedir").string() + "' " + form});
        ASSERT_EQ(built.exit_code, 0) << built.err;
        const auto run = run_program({program});
        EXPECT_EQ(run.exit_code, 0) << form;
        EXPECT_NE(run.out.find("19 22; 43 50"), std::string::npos) << run.out;
        const auto needed = run_program({"/bin/sh", "-c", "ldd '" + program + "'"});
        EXPECT_EQ(needed.exit_code, 0);
        EXPECT_EQ(needed.out.find("libstdc++"), std::string::npos) << needed.out;
    }
}
