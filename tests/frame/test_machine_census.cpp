// SPDX-License-Identifier: BSD-3-Clause
// Packages, cores and logical processors: on machines of several shapes, of which the processor and /proc/cpuinfo are
// put in place of the real ones, and on this machine.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "frame/service/machine_census.h"
#include "frame/service/processor.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"

namespace
{
// The machine of the current child. Processors are numbered from 0; each has an initial APIC identifier.
struct shape {
    std::vector<unsigned> apic_ids;
    unsigned logical_per_package, cores_per_package;
    bool multi = true; // the counts above are there
    bool maker = true;
    std::string cpuinfo; // empty: the file cannot be opened
};
const shape *machine;
int current_cpu;
std::vector<int> pinned;

void cpuid_here(uint32_t leaf, uint32_t subleaf, cpuid_answer *answer)
{
    *answer = {0, 0, 0, 0};
    if (leaf == 0) {
        answer->eax = 4;
        const char *vendor = machine->maker ? "GenuineOrvan" : "AnotherMaker";
        std::memcpy(&answer->ebx, vendor, 4);
        std::memcpy(&answer->edx, vendor + 4, 4);
        std::memcpy(&answer->ecx, vendor + 8, 4);
    } else if (leaf == 1) {
        answer->ebx = machine->apic_ids[static_cast<std::size_t>(current_cpu)] << 24 | machine->logical_per_package
                                                                                           << 16;
        answer->edx = machine->multi ? 1u << 28 : 0;
    } else if (leaf == 4 && subleaf == 0) {
        answer->eax = (machine->cores_per_package - 1) << 26;
    }
}

// The affinity calls of the census, for as many processors as the shape has, numbered from first_cpu.
int first_cpu = 0;
long affinity_call(long number, ...)
{
    va_list arguments;
    va_start(arguments, number);
    va_arg(arguments, int);
    const long bytes = va_arg(arguments, long);
    unsigned char *mask = va_arg(arguments, unsigned char *);
    va_end(arguments);
    if (number == SYS_sched_getaffinity) {
        EXPECT_EQ(bytes, 1024);
        const std::size_t first = static_cast<std::size_t>(first_cpu);
        for (std::size_t cpu = first; cpu < first + machine->apic_ids.size(); ++cpu)
            mask[cpu / 8] |= static_cast<unsigned char>(1u << (cpu % 8));
        return 16;
    }
    EXPECT_EQ(number, SYS_sched_setaffinity);
    EXPECT_EQ(bytes, 16);
    int count = 0;
    for (int cpu = 0; cpu < 128; ++cpu) {
        if ((mask[cpu / 8] >> (cpu % 8) & 1) != 0) {
            ++count;
            current_cpu = cpu;
        }
    }
    pinned.push_back(count == 1 ? current_cpu : -1);
    return 0;
}

long refused_call(long, ...)
{
    return -1;
}

FILE *open_cpuinfo(const char *name, const char *)
{
    EXPECT_STREQ(name, "/proc/cpuinfo");
    if (machine->cpuinfo.empty())
        return nullptr;
    return fmemopen(const_cast<char *>(machine->cpuinfo.data()), machine->cpuinfo.size(), "r");
}

void in_child(const std::function<void()> &body)
{
    const auto child = tesh_test::run_forked([&] {
        body();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exit_code, 0) << child.out;
    EXPECT_EQ(child.err, "");
}

void expect_counts(const shape &s, int packages, int cores_per_package, int ht, int logical)
{
    in_child([&] {
        machine = &s;
        tesh_test::detour(processor_cpuid, cpuid_here);
        tesh_test::detour(reinterpret_cast<long (*)(long, ...)>(syscall), affinity_call);
        tesh_test::detour(fopen, open_cpuinfo);
        EXPECT_EQ(__threads_env_NOT_readed, 0);
        EXPECT_EQ(tesh_serv_get_ncpus(), packages);
        EXPECT_EQ(__threads_env_NOT_readed, 1);
        EXPECT_EQ(tesh_serv_get_ncorespercpu(), cores_per_package);
        EXPECT_EQ(tesh_serv_get_ht(), ht);
        EXPECT_EQ(tesh_serv_get_nlogicalcores(), logical);
        // Stored back, every processor in turn, and back again.
        const std::size_t cpus = s.apic_ids.size();
        ASSERT_EQ(pinned.size(), cpus + 2);
        if (cpus > 1) {
            EXPECT_EQ(pinned.front(), -1);
            EXPECT_EQ(pinned.back(), -1);
        }
        for (std::size_t i = 0; i < cpus; ++i)
            EXPECT_EQ(pinned[i + 1], static_cast<int>(i));
    });
}

std::string cpuinfo_of(int processors, const std::vector<int> &physical_ids, int siblings, int cpu_cores)
{
    std::string text;
    for (int i = 0; i < processors; ++i) {
        text += "processor\t: " + std::to_string(i) + "\n";
        text +=
            "physical id\t: " + std::to_string(physical_ids[static_cast<std::size_t>(i) % physical_ids.size()]) + "\n";
        text += "siblings\t: " + std::to_string(siblings) + "\ncpu cores\t: " + std::to_string(cpu_cores) + "\n\n";
    }
    return text;
}

shape two_packages_of_four_with_threads()
{
    shape s;
    for (unsigned package = 0; package < 2; ++package) {
        for (unsigned in_package = 0; in_package < 8; ++in_package)
            s.apic_ids.push_back(package << 3 | in_package); // 1 bit of thread, 2 of core
    }
    s.logical_per_package = 8;
    s.cores_per_package = 4;
    return s;
}
} // namespace

TEST(machine_census, without_cpuinfo_the_probe_answers)
{
    expect_counts(two_packages_of_four_with_threads(), 2, 4, 1, 16);
}

TEST(machine_census, cores_that_are_no_power_of_two)
{
    shape s; // 6 cores of one thread: 3 bits of core
    s.apic_ids = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13};
    s.logical_per_package = 6;
    s.cores_per_package = 6;
    expect_counts(s, 2, 6, 0, 12);
}

TEST(machine_census, a_processor_that_counts_nothing_has_one_core_a_package)
{
    shape s;
    s.apic_ids = {0, 1, 2};
    s.logical_per_package = 200;
    s.cores_per_package = 40;
    s.multi = false;
    expect_counts(s, 3, 1, 0, 3);
}

TEST(machine_census, fewer_threads_than_cores_by_their_counts)
{
    shape s;
    s.apic_ids = {0, 1, 2, 3};
    s.logical_per_package = 1;
    s.cores_per_package = 4;
    expect_counts(s, 1, 4, 0, 4);
}

TEST(machine_census, other_makers_identifiers_are_not_read)
{
    shape s = two_packages_of_four_with_threads();
    s.maker = false;
    expect_counts(s, 1, 1, 1, 16);
    s.cpuinfo = cpuinfo_of(16, {0, 1}, 8, 4);
    expect_counts(s, 2, 4, 1, 16);
}

TEST(machine_census, cpuinfo_without_threads_of_a_core)
{
    shape s = two_packages_of_four_with_threads();
    s.cpuinfo = cpuinfo_of(16, {0, 7}, 8, 8);
    expect_counts(s, 2, 8, 0, 16);
    s.cpuinfo = cpuinfo_of(16, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, 1, 1); // a core a package
    expect_counts(s, 16, 1, 0, 16);
}

TEST(machine_census, cpuinfo_with_threads_of_a_core)
{
    shape s;
    s.apic_ids = {0, 1, 2, 3};
    s.logical_per_package = 4;
    s.cores_per_package = 4;
    s.cpuinfo = cpuinfo_of(4, {3}, 4, 2);
    expect_counts(s, 1, 2, 1, 4);
}

TEST(machine_census, cpuinfo_is_asked_for_the_first_processor_alone)
{
    shape s = two_packages_of_four_with_threads();
    s.cpuinfo = cpuinfo_of(8, {0, 1}, 8, 4) + cpuinfo_of(8, {0, 1}, 5, 3);
    s.cpuinfo.insert(0, "siblings\t: 9\ncpu cores\t: 9\n");
    expect_counts(s, 2, 4, 1, 16);
}

TEST(machine_census, counts_start_as_unknown)
{
    EXPECT_EQ(__N_CPU_Packages, -1);
    EXPECT_EQ(__N_Cores_per_Packages, -1);
    EXPECT_EQ(__HT, -1);
    EXPECT_EQ(__N_Logical_Cores, 1);
    EXPECT_EQ(__threads_env_NOT_readed, 0);
}

TEST(machine_census, cpuinfo_that_contradicts_itself_has_no_say)
{
    shape s = two_packages_of_four_with_threads();
    for (const std::string &text :
         {cpuinfo_of(16, {0}, 8, 4), cpuinfo_of(16, {0, 1}, 8, 0), cpuinfo_of(16, {0, 1}, 0, 4),
          cpuinfo_of(16, {0, 1}, 7, 8), std::string("nothing\n")}) {
        // "nothing" has no processor line, so no processor is visited either.
        s.cpuinfo = text;
        if (text != "nothing\n")
            expect_counts(s, 2, 4, 1, 16);
    }
}

TEST(machine_census, visits_no_more_processors_than_cpuinfo_lists)
{
    shape s = two_packages_of_four_with_threads();
    s.cpuinfo = "processor\t: 0\nprocessor\t: 1\nprocessor\t: 2\n";
    in_child([&] {
        machine = &s;
        tesh_test::detour(processor_cpuid, cpuid_here);
        tesh_test::detour(reinterpret_cast<long (*)(long, ...)>(syscall), affinity_call);
        tesh_test::detour(fopen, open_cpuinfo);
        EXPECT_EQ(tesh_serv_get_nlogicalcores(), 3);
        EXPECT_EQ(tesh_serv_get_ncpus(), 1);
        EXPECT_EQ(tesh_serv_get_ncorespercpu(), 2);
        EXPECT_EQ(tesh_serv_get_ht(), 1);
        EXPECT_EQ(pinned, (std::vector<int>{-1, 0, 1, 2, -1}));
    });
}

TEST(machine_census, no_processor_line_is_one_of_everything)
{
    shape s = two_packages_of_four_with_threads();
    s.cpuinfo = "nothing\n";
    in_child([&] {
        machine = &s;
        tesh_test::detour(reinterpret_cast<long (*)(long, ...)>(syscall), affinity_call);
        tesh_test::detour(fopen, open_cpuinfo);
        EXPECT_EQ(tesh_serv_get_ncpus(), 1);
        EXPECT_EQ(tesh_serv_get_ncorespercpu(), 1);
        EXPECT_EQ(tesh_serv_get_ht(), 0);
        EXPECT_EQ(tesh_serv_get_nlogicalcores(), 1);
    });
}

// A container whose /proc/cpuinfo lists its own two processors, while the system numbers them 12 and 13.
TEST(machine_census, cpuinfo_has_its_say_where_no_processor_could_be_visited)
{
    shape s;
    s.apic_ids = {12, 13};
    const auto expect_with = [&](const std::string &cpuinfo, int packages, int cores_per_package, int ht, int logical) {
        s.cpuinfo = cpuinfo;
        in_child([&] {
            machine = &s;
            first_cpu = 12;
            tesh_test::detour(reinterpret_cast<long (*)(long, ...)>(syscall), affinity_call);
            tesh_test::detour(fopen, open_cpuinfo);
            EXPECT_EQ(tesh_serv_get_ncpus(), packages);
            EXPECT_EQ(tesh_serv_get_ncorespercpu(), cores_per_package);
            EXPECT_EQ(tesh_serv_get_ht(), ht);
            EXPECT_EQ(tesh_serv_get_nlogicalcores(), logical);
            EXPECT_EQ(pinned, (std::vector<int>{-1, -1}));
        });
    };
    expect_with(cpuinfo_of(2, {0}, 2, 2), 1, 2, 0, 2);
    expect_with(cpuinfo_of(2, {0}, 2, 1), 1, 1, 1, 2);
    expect_with("processor\t: 0\nprocessor\t: 1\n", 1, 1, 0, 1);
}

TEST(machine_census, a_system_that_refuses_affinity_is_one_core)
{
    in_child([] {
        tesh_test::detour(reinterpret_cast<long (*)(long, ...)>(syscall), refused_call);
        EXPECT_EQ(tesh_serv_get_ncpus(), 1);
        EXPECT_EQ(tesh_serv_get_ncorespercpu(), 1);
        EXPECT_EQ(tesh_serv_get_ht(), 0);
        EXPECT_EQ(tesh_serv_get_nlogicalcores(), 1);
    });
}

TEST(machine_census, memory_that_cannot_be_had_is_one_core)
{
    static int left;
    for (left = 0; left < 3; ++left) { // each of the three arrays is the first to be refused
        in_child([] {
            i_malloc = [](size_t size) -> void * { return left-- <= 0 ? nullptr : __builtin_malloc(size); };
            EXPECT_EQ(tesh_serv_get_ncpus(), 1);
            EXPECT_EQ(tesh_serv_get_ncorespercpu(), 1);
            EXPECT_EQ(tesh_serv_get_ht(), 0);
            EXPECT_EQ(tesh_serv_get_nlogicalcores(), 1);
        });
    }
}

TEST(machine_census, this_machine_and_its_affinity)
{
    in_child([] {
        cpu_set_t before, after;
        ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
        EXPECT_GE(tesh_serv_get_nlogicalcores(), CPU_COUNT(&before) > 0 ? 1 : 0);
        EXPECT_GE(tesh_serv_get_ncpus(), 1);
        EXPECT_GE(tesh_serv_get_ncorespercpu(), 1);
        EXPECT_LE(tesh_serv_get_ncpus() * tesh_serv_get_ncorespercpu(), tesh_serv_get_nlogicalcores());
        ASSERT_EQ(sched_getaffinity(0, sizeof after, &after), 0);
        EXPECT_TRUE(CPU_EQUAL(&before, &after));
    });
}

TEST(machine_census, many_threads_get_one_answer)
{
    in_child([] {
        std::vector<int> answers(8);
        std::vector<std::thread> threads;
        for (int &answer : answers)
            threads.emplace_back([&answer] { answer = tesh_serv_get_ncorespercpu(); });
        for (auto &thread : threads)
            thread.join();
        for (const int answer : answers)
            EXPECT_EQ(answer, answers[0]);
    });
}
