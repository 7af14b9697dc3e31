// SPDX-License-Identifier: BSD-3-Clause
// The directory that the load-time constructors keep: with a slash behind it where both fit.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "frame/service/loader.h"
#include "tests/support/child.h"
#include "tests/support/guard_pages.h"

namespace
{
constexpr size_t longest_name = 255; // of a directory

// Goes down from base, making directories, until the path has the length. False where the system refuses.
bool go_to_path_of(const std::string &base, size_t length)
{
    if (chdir(base.c_str()) != 0)
        return false;
    for (size_t at = base.size(); at < length;) {
        const size_t left = length - at - 1; // behind the slash
        // Two characters at least stay for the next name and its slash.
        const std::string name(left > longest_name ? std::min(longest_name, left - 2) : left, 'd');
        if (mkdir(name.c_str(), 0700) != 0 || chdir(name.c_str()) != 0)
            return false;
        at += 1 + name.size();
    }
    return true;
}

void expect_captured(size_t length, const char *behind)
{
    std::string base = testing::TempDir() + "tesh_loader_XXXXXX";
    ASSERT_NE(mkdtemp(base.data()), nullptr);
    base = std::filesystem::canonical(base);
    const auto child = tesh_test::run_forked([&] {
        if (!go_to_path_of(base, length))
            return 2;
        const tesh_test::guarded_array<char> area(loader_directory_bytes);
        loader_capture_directory(area.data(), nullptr);
        return std::strlen(area.data()) == length + std::strlen(behind) &&
                       std::strcmp(area.data() + length, behind) == 0 &&
                       std::strncmp(area.data(), base.c_str(), base.size()) == 0
                   ? 0
                   : 1;
    });
    EXPECT_EQ(child.exit_code, 0) << "length " << length << child.err;
    std::filesystem::remove_all(base);
}
} // namespace

TEST(loader, puts_a_slash_behind_the_directory)
{
    expect_captured(60, "/");
    expect_captured(1000, "/");
}

TEST(loader, leaves_the_slash_out_where_the_area_ends)
{
    expect_captured(loader_directory_bytes - 2, "/");
    expect_captured(loader_directory_bytes - 1, "");
}
