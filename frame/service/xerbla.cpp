// SPDX-License-Identifier: BSD-3-Clause
// Reports of bad arguments: the slot of the handler in force and the library's own report.
#include "frame/service/xerbla_slot.h"

namespace
{
// Codes with a text of their own; every other code above 0 is the position of a bad argument.
enum report_code : int64_t {
    report_code_workspace = 1000,
    report_code_optional_parameters = 1001,
    report_code_work_memory = 1103,
    report_code_coprocessor = 1226,
};

enum report_message : int32_t {
    report_message_parameter = 6,
    report_message_condition = 7,
    report_message_workspace = 8,
    report_message_optional_parameters = 9,
    report_message_work_memory = 1103,
    report_message_coprocessor = 1226,
};

constexpr int32_t destination_stdout = 0;
constexpr int32_t name_shown = 20;  // characters of a routine's name in a report
constexpr size_t name_bound = 4096; // longest name that is measured [bytes]

int32_t tesh_xerbla_address_lock = 0;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_xerbla_address = &tesh_xerbla_address_lock;

tesh_serv_xerbla_fn handler_in_force()
{
    return __atomic_load_n(&tesh_xerbla_address, __ATOMIC_ACQUIRE);
}
} // namespace

extern "C" {
tesh_serv_xerbla_fn tesh_xerbla_address = nullptr;

void tesh_serv_xerbla(const char *name, const int64_t *code, int32_t length)
{
    if (name == nullptr || code == nullptr)
        return;
    const tesh_serv_xerbla_fn handler = handler_in_force();
    if (handler == nullptr)
        default_report(name, code, length);
    else
        handler(name, code, length);
}

void default_report(const char *name, const int64_t *code, int32_t length)
{
    if (name == nullptr || code == nullptr || length < 0)
        return;
    char shown[name_shown + 2] = {};
    const int32_t shown_length = length < name_shown ? length : name_shown;
    tesh_serv_strncpy_s(shown, sizeof shown, name, static_cast<size_t>(shown_length));
    shown[shown_length] = '\0';

    tesh_serv_print(destination_stdout, 0, 0);
    const int64_t value = *code;
    switch (value) {
    case report_code_workspace:
        tesh_serv_print(destination_stdout, report_message_workspace, 1, shown);
        break;
    case report_code_optional_parameters:
        tesh_serv_print(destination_stdout, report_message_optional_parameters, 1, shown);
        break;
    case report_code_work_memory:
        tesh_serv_print(destination_stdout, report_message_work_memory, 1, shown);
        break;
    case report_code_coprocessor:
        tesh_serv_print(destination_stdout, report_message_coprocessor, 1, shown);
        break;
    default:
        // The texts show the low 32 bits.
        if (value > 0)
            tesh_serv_print(destination_stdout, report_message_parameter, 2, static_cast<int32_t>(value), shown);
        else
            tesh_serv_print(destination_stdout, report_message_condition, 2,
                            static_cast<int32_t>(0 - static_cast<uint64_t>(value)), shown);
    }
}

[[gnu::alias("default_report")]] decltype(tesh_serv_default_xerbla) tesh_serv_default_xerbla;

tesh_serv_xerbla_fn tesh_serv_set_xerbla(tesh_serv_xerbla_fn handler)
{
    const tesh_serv_xerbla_fn former = __atomic_exchange_n(&tesh_xerbla_address, handler, __ATOMIC_ACQ_REL);
    return former != nullptr ? former : tesh_serv_default_xerbla;
}

// A handler that the program set before its first call of a public routine is thus never replaced.
void tesh_serv_set_xerbla_interface(tesh_serv_xerbla_fn handler)
{
    if (handler_in_force() != nullptr)
        return;
    tesh_serv_lock(&tesh_xerbla_address_lock);
    if (handler_in_force() == nullptr)
        __atomic_store_n(&tesh_xerbla_address, handler, __ATOMIC_RELEASE);
    tesh_serv_unlock(&tesh_xerbla_address_lock);
}

int32_t tesh_serv_check_ptr(const void *pointer, const char *name)
{
    if (pointer != nullptr)
        return 0;
    const int64_t code = report_code_work_memory;
    tesh_serv_xerbla(name, &code, static_cast<int32_t>(tesh_serv_strnlen_s(name, name_bound)));
    return 1;
}

int32_t tesh_serv_check_ptr_and_warn(const void *pointer, const char *)
{
    return pointer == nullptr;
}
}
