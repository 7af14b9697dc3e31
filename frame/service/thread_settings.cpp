// SPDX-License-Identifier: BSD-3-Clause
// The thread settings of the environment. They are parsed and kept; the sequential form answers 1 whatever they say.
#include <stdlib.h>
#include <string.h>

#include "frame/service/machine_census.h"
#include "frame/tesh_serv.h"

namespace
{
constexpr int32_t no_number = -1, one_thread = 1;
constexpr char separators[] = " \"',:;", ends_of_name[] = " \"'=", quotes[] = " \"'";

// All characters decimal digits: the number, at most the largest 32-bit one. Anything else, empty included: otherwise.
int32_t number_or(const char *text, size_t length, int32_t otherwise)
{
    int64_t value = 0;
    for (size_t i = 0; i < length; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return otherwise;
        value = value * 10 + (text[i] - '0');
        if (value > INT32_MAX)
            value = INT32_MAX;
    }
    return length > 0 ? static_cast<int32_t>(value) : otherwise;
}

// The variable's number; otherwise where it holds anything but digits, and no_number where it is not set.
int32_t number_of_variable(const char *name, int32_t otherwise)
{
    char text[256];
    const int32_t length = tesh_serv_getenv(name, text, sizeof text);
    return length < 1 ? no_number : number_or(text, static_cast<size_t>(length), otherwise);
}

// The first setting stands.
void store_first(int32_t *slot, int32_t value)
{
    if (*slot < 0)
        *slot = value;
}

struct domain {
    const char *name;
    int32_t *threads;
};
const domain domains[] = {
    {"TESH_DOMAIN_ALL", &__tesh_num_threads},
    {"TESH_DOMAIN_BLAS", &__tesh_blas_num_threads},
    {"TESH_DOMAIN_FFT", &__tesh_fft_num_threads},
    {"TESH_DOMAIN_VML", &__tesh_vml_num_threads},
    {"TESH_DOMAIN_PARDISO", &__tesh_pardiso_num_threads},
    {"TESH_DOMAIN_LAPACK", &__tesh_lapack_num_threads},
};

// "NAME=value" pairs in any of the usual quotings: TESH_DOMAIN_ALL=1, "TESH_DOMAIN_BLAS 4; TESH_DOMAIN_FFT=2".
void read_domains(const char *text)
{
    for (;;) {
        text += strspn(text, separators);
        const size_t name_length = strcspn(text, ends_of_name);
        if (name_length == 0)
            return;
        const char *value = text + name_length;
        value += strspn(value, " =");
        const size_t value_length = strcspn(value, separators);
        const int32_t threads = number_or(value, value_length, one_thread);
        for (const domain &d : domains) {
            if (threads > 0 && strlen(d.name) == name_length && strncmp(text, d.name, name_length) == 0)
                store_first(d.threads, threads);
        }
        text = value + value_length;
    }
}

// 0 for "FALSE" or "false", in quotes or not; all else, unset included, is 1.
int32_t dynamic_setting(void)
{
    char text[256];
    if (tesh_serv_getenv("TESH_DYNAMIC", text, sizeof text) < 1)
        return 1;
    char *word = text + strspn(text, quotes);
    word[strcspn(word, quotes)] = 0;
    return strcmp(word, "FALSE") != 0 && strcmp(word, "false") != 0;
}
} // namespace

extern "C" {
int32_t __tesh_num_threads = -1, __tesh_num_stripes = -1, __tesh_dynamic = -1;
int32_t __tesh_blas_num_threads = -1, __tesh_fft_num_threads = -1, __tesh_vml_num_threads = -1;
int32_t __tesh_pardiso_num_threads = -1, __tesh_lapack_num_threads = -1;

void thread_settings_read(void)
{
    const int32_t threads = number_of_variable("TESH_NUM_THREADS", one_thread);
    if (threads > 0)
        store_first(&__tesh_num_threads, threads);
    const int32_t stripes = number_of_variable("TESH_NUM_STRIPES", no_number);
    if (stripes >= 0)
        store_first(&__tesh_num_stripes, stripes);
    char list[4096];
    if (tesh_serv_getenv("TESH_DOMAIN_NUM_THREADS", list, sizeof list) > 0)
        read_domains(list);
    if (__tesh_dynamic == -1)
        __tesh_dynamic = dynamic_setting();
    // Two settings of other layers, read like the rest: no form of this library acts on them.
    number_of_variable("OMP_NUM_THREADS", no_number);
    tesh_serv_mpi_get_ppn();
    number_of_variable("OV_MPI_THREAD_LEVEL", no_number);
}
}
