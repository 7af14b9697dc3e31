// SPDX-License-Identifier: BSD-3-Clause
// The one gate through which the library reads its settings.
#include <stdlib.h>
#include <string.h>

#include "frame/service/getenv.h"
#include "frame/tesh_serv.h"

// Above 0: only the names below can be read.
static int32_t tesh_disable_env_variables = 0;

namespace
{
constexpr int32_t value_bound = 4096; // a value of this length or more is never read [bytes]

// Names that are no settings of this library, and so stay visible.
constexpr const char *visible_names[] = {"ORB_BLAS_COMPUTE_MODE", "HCX_LD_LIBRARY_PATH", "LD_LIBRARY_PATH", "TESHROOT",
                                         "LANG"};

bool is_always_visible(const char *name)
{
    for (const char *visible : visible_names) {
        if (strcmp(name, visible) == 0)
            return true;
    }
    return false;
}

// Null where the variable is not set or cannot be seen.
const char *visible_value(const char *name)
{
    return tesh_serv_get_envmode_variable() > 0 && !is_always_visible(name) ? nullptr : getenv(name);
}
} // namespace

bool getenv_is_set(const char *name)
{
    return visible_value(name) != nullptr;
}

extern "C" {
int32_t tesh_serv_get_envmode_variable(void)
{
    return __atomic_load_n(&tesh_disable_env_variables, __ATOMIC_RELAXED);
}

void tesh_serv_set_envmode_variable(int32_t value)
{
    __atomic_store_n(&tesh_disable_env_variables, value, __ATOMIC_RELAXED);
}

int32_t tesh_serv_getenv(const char *name, char *buffer, int32_t size)
{
    if (size > 0)
        buffer[0] = 0;
    const char *value = visible_value(name);
    if (value == nullptr)
        return 0;
    const int32_t length = static_cast<int32_t>(tesh_serv_strnlen_s(value, value_bound));
    if (size <= length || length == value_bound)
        return -length;
    const size_t room =
        static_cast<size_t>(size < value_bound ? size : value_bound); // the copy's own limit is no higher
    tesh_serv_strncpy_s(buffer, room, value, room);
    return length;
}

int32_t tesh_get_env_int(const char *name)
{
    char text[256];
    if (tesh_serv_getenv(name, text, sizeof text) < 1)
        return -1;
    char *end = nullptr;
    const long value = strtol(text, &end, 10);
    return *end != 0 || value < 0 || value > INT32_MAX ? -1 : static_cast<int32_t>(value);
}
}
