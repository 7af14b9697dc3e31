// SPDX-License-Identifier: BSD-3-Clause
// The numbered messages and their way to standard output or standard error, without allocation: they also serve when
// memory has run out.
#include "frame/tesh_serv.h"

namespace
{
enum message_severity : int32_t { message_severity_none = 1, message_severity_warning = 2, message_severity_error = 4 };

struct message {
    int32_t number; // ascending
    message_severity severity;
    const char *text;
};

constexpr message tesh_msgtab[] = {
    {0, message_severity_none, "\n"},
    {1, message_severity_error, "Orvan Tesh FATAL ERROR: Cannot load %s."},
    {6, message_severity_error, "Orvan Tesh ERROR: Parameter %d was incorrect on entry to %s."},
    {7, message_severity_error, "Orvan Tesh INTERNAL ERROR: Condition %d detected in function %s."},
    {8, message_severity_error, "Orvan Tesh INTERNAL ERROR: Insufficient workspace available in function %s."},
    {9, message_severity_error, "Orvan Tesh ERROR: Incompatible optional parameters on entry to %s."},
    {1103, message_severity_error, "Orvan Tesh INTERNAL ERROR: Not enough work memory in function %s"},
    {1223, message_severity_warning,
     "Orvan Tesh WARNING: incorrect conditional numerical reproducibility mode, TESH_CBWR_AUTO is set"},
    {1224, message_severity_error,
     "Orvan Tesh FATAL ERROR: This system does not meet the minimum requirements for use of the Orvan(R) Tesh Numeric "
     "Library."},
    {1226, message_severity_error, "Orvan Tesh INTERNAL ERROR: Issue accessing coprocessor %s."},
    {1227, message_severity_error, "Orvan Tesh ERROR: CPU %d is not supported."},
    {1451, message_severity_error,
     "The processor must support the Orvan(R) Streaming SIMD 3 Extensions (Orvan(R) SSE3) instructions."},
    {1454, message_severity_warning,
     "Orvan Tesh WARNING: Support of Orvan(R) Supplemental Streaming SIMD Extensions 3 (Orvan(R) SSSE3) enabled only "
     "processors has been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD 2 Extensions "
     "(Orvan(R) SSE2) instructions instead."},
    {1455, message_severity_warning,
     "Orvan Tesh WARNING: Support of Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) enabled only processors has "
     "been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD Extensions 4.2 (Orvan(R) SSE4.2) "
     "instructions instead."},
};

constexpr const char *line_end = tesh_msgtab[0].text;
constexpr int32_t destination_stderr = 1;
constexpr size_t buffer_bytes = 512;

char print_buf[buffer_bytes];
char get_msg_buf[buffer_bytes];

// "" for a number that has no text.
const char *text_of(int32_t number)
{
    for (const message &m : tesh_msgtab) {
        if (m.number == number)
            return m.text;
    }
    return "";
}
} // namespace

extern "C" {
void tesh_puts(int32_t destination, const char *text)
{
    const size_t length = tesh_serv_strnlen_s(text, buffer_bytes);
    if (length >= buffer_bytes + 2) {
        tesh_serv_printf_s("\nTESH INTERNAL ERROR: message buffer overflow.");
        tesh_serv_printf_s("\n       Lenght: %d   Buffer size: %d\n", static_cast<int>(length),
                           static_cast<int>(buffer_bytes));
    }
    if (destination == destination_stderr && stderr != nullptr)
        tesh_serv_fprintf_stderr_s("%s", text);
    else
        tesh_serv_printf_s("%s", text);
    fflush(nullptr);
}

void tesh_serv_print(int32_t destination, int32_t number, int32_t count, ...)
{
    if (number != 0) {
        va_list args;
        va_start(args, count);
        tesh_serv_vsprintf_s(print_buf, sizeof print_buf, text_of(number), args);
        va_end(args);
        tesh_puts(destination, print_buf);
    }
    tesh_puts(destination, line_end);
}

const char *tesh_serv_get_msg(int32_t number, int32_t count, ...)
{
    if (number == 0)
        return "";
    if (count < 1)
        return text_of(number);
    va_list args;
    va_start(args, count);
    tesh_serv_vsprintf_s(get_msg_buf, sizeof get_msg_buf, text_of(number), args);
    va_end(args);
    return get_msg_buf;
}

void tesh_serv_format_print(int32_t destination, const char *format, int32_t count, ...)
{
    if (count < 1)
        return;
    va_list args;
    va_start(args, count);
    tesh_serv_vsprintf_s(print_buf, sizeof print_buf, format, args);
    va_end(args);
    tesh_puts(destination, print_buf);
}

void tesh_serv_file_format_print(FILE *file, const char *format, int32_t count, ...)
{
    if (count < 1)
        return;
    va_list args;
    va_start(args, count);
    tesh_serv_vsprintf_s(print_buf, sizeof print_buf, format, args);
    va_end(args);
    tesh_serv_fprintf_s(file, "%s", print_buf);
    fflush(file);
}
}
