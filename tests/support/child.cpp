// SPDX-License-Identifier: BSD-3-Clause
// Children by fork and by exec, their two streams read through pipes as they write.
#include "tests/support/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace
{
void set_environment(const std::map<std::string, std::string> &environment)
{
    for (const auto &[name, value] : environment) {
        if (value.empty())
            unsetenv(name.c_str());
        else
            setenv(name.c_str(), value.c_str(), 1);
    }
}

void collect(int out, int err, tesh_test::child_result &result)
{
    pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string *texts[2] = {&result.out, &result.err};
    int open_ends = 2;
    while (open_ends > 0) {
        if (poll(fds, 2, -1) < 0)
            continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_ends;
            }
        }
    }
}

tesh_test::child_result spawn(const std::function<void()> &in_child)
{
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        std::abort();
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        std::abort();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        in_child();
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    tesh_test::child_result result;
    collect(out[0], err[0], result);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status))
        result.exit_code = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    return result;
}
} // namespace

tesh_test::child_result tesh_test::run_forked(const std::function<int()> &body,
                                              const std::map<std::string, std::string> &environment)
{
    return spawn([&] {
        set_environment(environment);
        std::exit(body());
    });
}

tesh_test::child_result tesh_test::run_program(const std::vector<std::string> &command,
                                               const std::map<std::string, std::string> &environment)
{
    return spawn([&] {
        set_environment(environment);
        std::vector<char *> argv;
        for (const std::string &word : command)
            argv.push_back(const_cast<char *>(word.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        std::perror(argv[0]);
    });
}
