// SPDX-License-Identifier: BSD-3-Clause
// A preload library that makes a program see the processor in TESH_VCPU_PROFILE (profile.h has the form). Nothing of
// the program is built otherwise.
//   CPUID        faults, where the processor and the system can make it so (arch_prctl ARCH_CPUID_SET); otherwise the
//                program runs in single steps, and each CPUID is answered instead of executed
//   XGETBV       never faults: answered in single steps, in the first mode for a while after each CPUID of leaf 1
//   arch_prctl   the permission calls trap by a system-call filter
//   FMA4, AMX    emulated where the profile has it and the processor has not
// TESH_VCPU_MODE=steps takes the second mode where the first would do; a program can ask which mode it got by the
// symbol tesh_vcpu_mode (1 faults, 2 steps). A step takes some microseconds, so a program can do without them where
// nothing is asked: with TESH_VCPU_START=call they begin at its call of tesh_vcpu_start, and end at tesh_vcpu_stop.
//
// In the second mode the program's signal mask is kept clear of the signals that the emulation lives on. In the first a
// program that blocks SIGSEGV and then executes CPUID ends. Handlers of these signals must not be replaced in either.
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <x86intrin.h>

#include "tests/support/vcpu/amx.h"
#include "tests/support/vcpu/fma4.h"
#include "tests/support/vcpu/profile.h"

extern "C" {
[[gnu::visibility("default")]] int tesh_vcpu_mode(void);
[[gnu::visibility("default")]] void tesh_vcpu_start(void);
[[gnu::visibility("default")]] void tesh_vcpu_stop(void);
}

namespace
{
constexpr long arch_cpuid_set = 0x1012, first_permission_code = 0x1021, last_permission_code = 0x1025;
constexpr greg_t trap_flag = 0x100, trap_general_protection = 13;
constexpr uint32_t leaf1_ecx_osxsave = 1u << 27, ext1_ecx_fma4 = 1u << 16, leaf7_edx_amx_tile = 1u << 24;
constexpr int tile_data = 18;        // number of the state component
constexpr int steps_to_xgetbv = 256; // [instructions] after a CPUID of leaf 1 within which XGETBV is looked for

enum mode { mode_off, mode_faults, mode_steps };
tesh_test::vcpu_profile profile;
mode current_mode = mode_off;
[[gnu::tls_model("initial-exec")]] thread_local int steps_left = 0;

greg_t &reg(ucontext_t *context, int which)
{
    return context->uc_mcontext.gregs[which];
}

// The instruction that comes next is one of these, with its length.
enum instruction { instruction_other, instruction_cpuid, instruction_xgetbv, instruction_syscall };
instruction instruction_at(const unsigned char *ip, int *length)
{
    int at = 0;
    while (at < 4 && (ip[at] == 0x66 || ip[at] == 0xf2 || ip[at] == 0xf3 || (ip[at] & 0xf0) == 0x40))
        ++at;
    if (ip[at] != 0x0f)
        return instruction_other;
    *length = at + 2;
    if (ip[at + 1] == 0xa2)
        return instruction_cpuid;
    if (ip[at + 1] == 0x05 && at == 0)
        return instruction_syscall;
    *length = at + 3;
    return ip[at + 1] == 0x01 && ip[at + 2] == 0xd0 && at == 0 ? instruction_xgetbv : instruction_other;
}

void answer_cpuid(ucontext_t *context)
{
    uint32_t registers[4];
    const uint32_t leaf = static_cast<uint32_t>(reg(context, REG_RAX));
    tesh_test::vcpu_cpuid(&profile, leaf, static_cast<uint32_t>(reg(context, REG_RCX)), registers);
    reg(context, REG_RAX) = registers[0];
    reg(context, REG_RBX) = registers[1];
    reg(context, REG_RCX) = registers[2];
    reg(context, REG_RDX) = registers[3];
    if (current_mode == mode_faults && leaf == 1 && (registers[2] & leaf1_ecx_osxsave) != 0) {
        steps_left = steps_to_xgetbv;
        reg(context, REG_EFL) |= trap_flag;
    }
}

void answer_xgetbv(ucontext_t *context)
{
    reg(context, REG_RAX) = static_cast<uint32_t>(profile.xcr0);
    reg(context, REG_RDX) = static_cast<greg_t>(profile.xcr0 >> 32);
}

// The signal mask of the program, without the signals of the emulation.
uint64_t without_ours(uint64_t mask)
{
    constexpr int ours[] = {SIGSEGV, SIGTRAP, SIGILL, SIGSYS};
    for (const int signal : ours)
        mask &= ~(uint64_t{1} << (signal - 1));
    return mask;
}

// rt_sigprocmask, done on the mask that the end of the handler restores.
void set_signal_mask(ucontext_t *context)
{
    uint64_t mask, given = 0;
    memcpy(&mask, &context->uc_sigmask, sizeof mask);
    const uint64_t *in = reinterpret_cast<const uint64_t *>(reg(context, REG_RSI));
    uint64_t *out = reinterpret_cast<uint64_t *>(reg(context, REG_RDX));
    const uint64_t before = mask;
    if (in != nullptr) {
        given = *in;
        const greg_t how = reg(context, REG_RDI);
        mask = how == SIG_BLOCK ? mask | given : how == SIG_UNBLOCK ? mask & ~given : given;
        mask = without_ours(mask);
        memcpy(&context->uc_sigmask, &mask, sizeof mask);
    }
    if (out != nullptr)
        *out = before;
    reg(context, REG_RAX) = 0;
}

// Answers what stands at the instruction pointer, until something comes that the processor itself can do.
void answer_what_comes(ucontext_t *context)
{
    for (;;) {
        int length = 0;
        switch (instruction_at(reinterpret_cast<const unsigned char *>(reg(context, REG_RIP)), &length)) {
        case instruction_cpuid:
            answer_cpuid(context);
            break;
        case instruction_xgetbv:
            answer_xgetbv(context);
            steps_left = 0;
            break;
        case instruction_syscall:
            if (reg(context, REG_RAX) == SYS_rt_sigprocmask) {
                set_signal_mask(context);
                break;
            }
            return;
        default:
            return;
        }
        reg(context, REG_RIP) += length;
    }
}

// A signal that is none of ours gets its usual end.
void give_up(int signal)
{
    struct sigaction usual;
    memset(&usual, 0, sizeof usual);
    usual.sa_handler = SIG_DFL;
    sigaction(signal, &usual, nullptr);
}

void on_fault(int signal, siginfo_t *info, void *frame)
{
    ucontext_t *context = static_cast<ucontext_t *>(frame);
    int length = 0;
    const bool protection = info->si_code == SI_KERNEL && reg(context, REG_TRAPNO) == trap_general_protection;
    if (!protection ||
        instruction_at(reinterpret_cast<const unsigned char *>(reg(context, REG_RIP)), &length) != instruction_cpuid) {
        give_up(signal);
        return;
    }
    answer_what_comes(context);
}

void on_step(int, siginfo_t *, void *frame)
{
    ucontext_t *context = static_cast<ucontext_t *>(frame);
    answer_what_comes(context);
    if (current_mode == mode_faults && --steps_left <= 0)
        reg(context, REG_EFL) &= ~trap_flag;
}

void on_illegal(int signal, siginfo_t *, void *frame)
{
    ucontext_t *context = static_cast<ucontext_t *>(frame);
    uint32_t ext1[4], leaf7[4];
    tesh_test::vcpu_cpuid(&profile, 0x80000001u, 0, ext1);
    tesh_test::vcpu_cpuid(&profile, 7, 0, leaf7);
    if ((ext1[2] & ext1_ecx_fma4) != 0 && tesh_test::emulate_fma4(context))
        return;
    if ((leaf7[3] & leaf7_edx_amx_tile) == 0) {
        give_up(signal);
        return;
    }
    switch (tesh_test::emulate_amx(context, (profile.permitted >> tile_data & 1) != 0)) {
    case tesh_test::amx_outcome::done:
        return;
    case tesh_test::amx_outcome::protection:
        give_up(SIGSEGV);
        syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), SIGSEGV);
        return;
    default:
        give_up(signal);
    }
}

void on_system_call(int signal, siginfo_t *, void *frame)
{
    ucontext_t *context = static_cast<ucontext_t *>(frame);
    const greg_t code = reg(context, REG_RDI);
    if (code < first_permission_code || code > last_permission_code) {
        give_up(signal);
        return;
    }
    reg(context, REG_RAX) = tesh_test::vcpu_arch_prctl(&profile, code, static_cast<uint64_t>(reg(context, REG_RSI)));
}

void install(int signal, void (*handler)(int, siginfo_t *, void *))
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigaction(signal, &action, nullptr);
}

bool trap_permission_calls()
{
    constexpr uint32_t at_arch = offsetof(seccomp_data, arch), at_number = offsetof(seccomp_data, nr),
                       at_code = offsetof(seccomp_data, args[0]);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at_arch),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 0, 5),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at_number),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_arch_prctl, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at_code),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, first_permission_code, 0, 1),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, last_permission_code, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
    };
    sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

[[gnu::constructor]] void begin()
{
    const char *text = getenv("TESH_VCPU_PROFILE");
    if (text == nullptr)
        return;
    if (!tesh_test::vcpu_parse(text, &profile) || !trap_permission_calls()) {
        fprintf(stderr, "vcpu: no profile, or no system-call filter\n");
        _exit(126);
    }
    install(SIGSEGV, on_fault);
    install(SIGTRAP, on_step);
    install(SIGILL, on_illegal);
    install(SIGSYS, on_system_call);
    const char *wanted = getenv("TESH_VCPU_MODE");
    const bool steps = wanted != nullptr && strcmp(wanted, "steps") == 0;
    current_mode = !steps && syscall(SYS_arch_prctl, arch_cpuid_set, 0) == 0 ? mode_faults : mode_steps;
    const char *start = getenv("TESH_VCPU_START");
    if (start == nullptr || strcmp(start, "call") != 0)
        tesh_vcpu_start();
}
} // namespace

extern "C" {
int tesh_vcpu_mode(void)
{
    return current_mode;
}

void tesh_vcpu_start(void)
{
    if (current_mode == mode_steps)
        __writeeflags(__readeflags() | static_cast<unsigned long long>(trap_flag));
}

void tesh_vcpu_stop(void)
{
    if (current_mode == mode_steps)
        __writeeflags(__readeflags() & ~static_cast<unsigned long long>(trap_flag));
}
}
