// SPDX-License-Identifier: BSD-3-Clause
// Verbose output: one header about the library and the machine, then a line for each call of a public routine.
//   TESH_VERBOSE <record> <time> CNR:<branch>[,STRICT] Dyn:<0|1> FastMM:<0|1>
// Trouble with the output never reaches the caller: it is warned about on standard error, and the text goes to standard
// output.
#include "frame/service/verbose.h"

#include "frame/tesh_serv.h"

namespace
{
constexpr size_t text_max = 399; // characters of the header, and of a line behind its record
constexpr int32_t strict_flag = 0x10000;

int32_t header_lock = 0, line_lock = 0;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_header = &header_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_line = &line_lock;
int32_t header_printed = 0;

struct bounded_text {
    char text[text_max + 1];
    size_t length;
};

// What does not fit is cut.
void append(bounded_text &to, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t added =
        tesh_serv_vsnprintf_s(to.text + to.length, sizeof to.text - to.length, text_max - to.length, format, args);
    va_end(args);
    to.length = added < 0 ? text_max : to.length + static_cast<size_t>(added);
}

// Appends one line, head and tail, to the output file; false if it goes to standard output instead. A line is one write
// of the C library, so that lines of several threads and processes do not mix.
bool print_to_file(const char *format, const char *head, const char *tail)
{
    char name[verbose_file_bytes];
    verbose_copy_file_name(name);
    if (name[0] == '\0')
        return false;
    FILE *const file = tesh_serv_fopen(name, "a");
    if (file == nullptr) {
        verbose_warn("unable to open output file. Print to STDOUT");
        return false;
    }
    tesh_serv_fprintf_s(file, format, head, tail);
    tesh_serv_fclose(file);
    return true;
}

void append_interface(bounded_text &header, int32_t interface)
{
    switch (interface) {
    case 0:
        break;
    case -1:
        append(header, ", %s", "cdecl");
        break;
    case 1:
        append(header, ", %s", "lp64");
        break;
    case 2:
        append(header, ", %s", "ilp64");
        break;
    default:
        append(header, ", iface%x", static_cast<uint32_t>(interface));
    }
}

void append_time(bounded_text &line, double seconds)
{
    if (!(seconds > 0.0))
        append(line, "%.2fs", 0.0);
    else if (seconds > 1.0)
        append(line, "%.2fs", seconds);
    else if (1000.0 * seconds > 1.0)
        append(line, "%.2fms", 1000.0 * seconds);
    else if (1000000.0 * seconds > 1.0)
        append(line, "%.2fus", 1000000.0 * seconds);
    else
        append(line, "%.0fns", seconds * 1000000000.0);
}

void append_branch(bounded_text &line, int32_t branch)
{
    static constexpr const char *names[] = {nullptr,  "OFF",    "AUTO", "COMPATIBLE", "SSE2",  nullptr, "SSSE3",
                                            "SSE4_1", "SSE4_2", "AVX",  "AVX2",       nullptr, "AVX512"};
    constexpr int32_t names_count = sizeof names / sizeof names[0];
    if (branch >= 0 && branch < names_count && names[branch] != nullptr)
        append(line, " CNR:%s", names[branch]);
    else
        append(line, " CNR:?%x", static_cast<uint32_t>(branch));
}
} // namespace

extern "C" {
void tesh_serv_print_verbose_header(int32_t interface)
{
    if (__atomic_load_n(&header_printed, __ATOMIC_ACQUIRE))
        return;
    tesh_serv_version version;
    tesh_serv_get_version(&version);
    bounded_text header = {};
    append(header, "TESH_VERBOSE Tesh %d", version.major);
    if (version.update > 0)
        append(header, " Update %d", version.update);
    if (version.patch > 0)
        append(header, " Patch %d", version.patch);
    append(header, " %s build %s for %s %s", version.status, version.build, version.processor, version.platform);
    append(header, ", %s", "Lnx");
    append(header, " %.2fGHz", tesh_serv_get_max_cpu_frequency());
    append_interface(header, interface);
    append(header, ", %s", "sequential");

    tesh_serv_lock(&header_lock);
    if (!__atomic_load_n(&header_printed, __ATOMIC_RELAXED)) {
        if (!print_to_file("%s%s\n", header.text, "")) {
            tesh_serv_printf_s("%s\n", header.text);
            fflush(stdout);
        }
        __atomic_store_n(&header_printed, 1, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&header_lock);
}

void tesh_serv_print_verbose_info(int32_t interface, const char *record, double seconds)
{
    bounded_text line = {};
    append_time(line, seconds);
    append_branch(line, tesh_serv_cbwr_get(1));
    if (tesh_serv_cbwr_get(-1) & strict_flag)
        append(line, ",STRICT");
    append(line, " Dyn:%d", tesh_serv_get_dynamic());
    append(line, " FastMM:%d", tesh_serv_get_fast_mm_status() != 0 ? 0 : 1);

    tesh_serv_print_verbose_header(interface);
    if (print_to_file("TESH_VERBOSE %s %s\n", record, line.text))
        return;
    tesh_serv_lock(&line_lock);
    tesh_serv_printf_s("TESH_VERBOSE %s %s\n", record, line.text);
    fflush(stdout);
    tesh_serv_unlock(&line_lock);
}
}
