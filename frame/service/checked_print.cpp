// SPDX-License-Identifier: BSD-3-Clause
// The library's only ways to the C library's print, scan and file calls.
#include "frame/tesh_serv.h"

extern "C" {
int32_t tesh_serv_vprintf_s(const char *format, va_list args)
{
    return vprintf(format, args);
}

int32_t tesh_serv_printf_s(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t length = tesh_serv_vprintf_s(format, args);
    va_end(args);
    return length;
}

int32_t tesh_serv_vfprintf_s(FILE *file, const char *format, va_list args)
{
    return vfprintf(file, format, args);
}

int32_t tesh_serv_fprintf_s(FILE *file, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t length = tesh_serv_vfprintf_s(file, format, args);
    va_end(args);
    return length;
}

int32_t tesh_serv_vfprintf_stdout_s(const char *format, va_list args)
{
    return tesh_serv_vfprintf_s(stdout, format, args);
}

int32_t tesh_serv_fprintf_stdout_s(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t length = tesh_serv_vfprintf_stdout_s(format, args);
    va_end(args);
    return length;
}

int32_t tesh_serv_vfprintf_stderr_s(const char *format, va_list args)
{
    return tesh_serv_vfprintf_s(stderr, format, args);
}

int32_t tesh_serv_fprintf_stderr_s(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t length = tesh_serv_vfprintf_stderr_s(format, args);
    va_end(args);
    return length;
}

int32_t tesh_serv_vsprintf_s(char *s, size_t dmax, const char *format, va_list args)
{
    return vsnprintf(s, dmax, format, args);
}

int32_t tesh_serv_sprintf_s(char *s, size_t dmax, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t length = tesh_serv_vsprintf_s(s, dmax, format, args);
    va_end(args);
    return length;
}

int32_t tesh_serv_sprintf_char_s(char *s, size_t dmax, const char *format, char value)
{
    return tesh_serv_sprintf_s(s, dmax, format, value);
}

int32_t tesh_serv_vsscanf_s(const char *s, const char *format, va_list args)
{
    return vsscanf(s, format, args);
}

int32_t tesh_serv_sscanf_s(const char *s, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t fields = tesh_serv_vsscanf_s(s, format, args);
    va_end(args);
    return fields;
}

int32_t tesh_serv_vfscanf_s(FILE *file, const char *format, va_list args)
{
    return vfscanf(file, format, args);
}

int32_t tesh_serv_fscanf_s(FILE *file, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t fields = tesh_serv_vfscanf_s(file, format, args);
    va_end(args);
    return fields;
}

FILE *tesh_serv_fopen(const char *name, const char *mode)
{
    return fopen(name, mode);
}

int32_t tesh_serv_fclose(FILE *file)
{
    return fclose(file);
}

// A text longer than count stays, cut; one that meets dmax first stays only if count is all ones (the caller asks for
// whatever fits), and is otherwise given up.
int32_t tesh_serv_vsnprintf_s(char *s, size_t dmax, size_t count, const char *format, va_list args)
{
    if (format == nullptr || s == nullptr || dmax == 0)
        return -1;
    const size_t bound = dmax - 1 < count ? dmax : count + 1;
    const int32_t result = vsnprintf(s, bound, format, args);
    if (result < 0) {
        s[0] = '\0';
        return -1;
    }
    const size_t length = static_cast<size_t>(result);
    s[bound - 1] = '\0';
    if (dmax > count && length > count)
        return -1;
    if (dmax > length)
        return result;
    if (count != SIZE_MAX)
        s[0] = '\0';
    return -1;
}

int32_t tesh_serv_snprintf_s(char *s, size_t dmax, size_t count, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t length = tesh_serv_vsnprintf_s(s, dmax, count, format, args);
    va_end(args);
    return length;
}
}
