// SPDX-License-Identifier: BSD-3-Clause
// Matrix tiles in plain code, on a copy of the tile registers.
#include "tests/support/vcpu/amx.h"

#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <cmath>

#include "tests/support/vcpu/vex.h"

namespace
{
using tesh_test::amx_outcome;
using tesh_test::vex_instruction;

constexpr int tiles = 8, row_bound = 16, row_bytes = 64;

// The 64 bytes of a configuration.
struct configuration {
    uint8_t palette, start_row;
    uint8_t zero_2_15[14];
    uint16_t row_bytes_used[8]; // "colsb"
    uint8_t zero_32_47[16];
    uint8_t rows[8];
    uint8_t zero_56_63[8];
};
static_assert(sizeof(configuration) == 64, "the layout that the instructions know");

struct tile_state {
    configuration config;
    unsigned char data[tiles][row_bound][row_bytes];
};
[[gnu::tls_model("initial-exec")]] thread_local tile_state state = {};

bool all_zero(const uint8_t *bytes, int count)
{
    int any = 0;
    for (int i = 0; i < count; ++i)
        any |= bytes[i];
    return any == 0;
}

bool is_legal(const configuration &c)
{
    if (c.palette > 1 || !all_zero(c.zero_2_15, 14) || !all_zero(c.zero_32_47, 16) || !all_zero(c.zero_56_63, 8))
        return false;
    for (int i = 0; i < tiles; ++i) {
        if (c.row_bytes_used[i] > row_bytes || c.rows[i] > row_bound || (c.row_bytes_used[i] == 0) != (c.rows[i] == 0))
            return false;
    }
    return true;
}

bool is_configured(int tile)
{
    return tile < tiles && state.config.palette == 1 && state.config.rows[tile] > 0;
}

// ---- Elements ----
float from_bf16(uint16_t bits)
{
    const uint32_t wide = static_cast<uint32_t>(bits) << 16;
    float value;
    memcpy(&value, &wide, sizeof value);
    return value;
}

float from_fp16(uint16_t bits)
{
    const int exponent = bits >> 10 & 31, fraction = bits & 0x3ff;
    float value;
    if (exponent == 31) {
        const uint32_t wide = 0x7f800000u | static_cast<uint32_t>(fraction) << 13;
        memcpy(&value, &wide, sizeof value);
    } else {
        value = exponent == 0 ? std::ldexp(static_cast<float>(fraction), -24)
                              : std::ldexp(static_cast<float>(fraction | 0x400), exponent - 25);
    }
    return (bits & 0x8000) != 0 ? -value : value;
}

template <class T> T element(int tile, int row, int at)
{
    T value;
    memcpy(&value, &state.data[tile][row][at * static_cast<int>(sizeof(T))], sizeof value);
    return value;
}

template <class T> void set_element(int tile, int row, int at, T value)
{
    memcpy(&state.data[tile][row][at * static_cast<int>(sizeof(T))], &value, sizeof value);
}

// c[m][n] += sum over k of the pairs a[m][2k, 2k+1] * b[k][2n, 2n+1], in two fused sums, even and odd.
template <float (*widen)(uint16_t)> void pair_product(int c, int a, int b, int rows, int columns, int depth)
{
    for (int m = 0; m < rows; ++m) {
        for (int n = 0; n < columns; ++n) {
            float even = 0, odd = 0;
            for (int k = 0; k < depth; ++k) {
                even = std::fma(widen(element<uint16_t>(a, m, 2 * k)), widen(element<uint16_t>(b, k, 2 * n)), even);
                odd =
                    std::fma(widen(element<uint16_t>(a, m, 2 * k + 1)), widen(element<uint16_t>(b, k, 2 * n + 1)), odd);
            }
            set_element(c, m, n, element<float>(c, m, n) + (even + odd));
        }
    }
}

// The same for quadruples of bytes, in 32-bit integers that wrap.
template <class left, class right> void byte_product(int c, int a, int b, int rows, int columns, int depth)
{
    for (int m = 0; m < rows; ++m) {
        for (int n = 0; n < columns; ++n) {
            uint32_t sum = element<uint32_t>(c, m, n);
            for (int k = 0; k < 4 * depth; ++k)
                sum += static_cast<uint32_t>(int32_t{element<left>(a, m, k)} *
                                             int32_t{element<right>(b, k / 4, 4 * n + k % 4)});
            set_element(c, m, n, sum);
        }
    }
}

using product_fn = void(int c, int a, int b, int rows, int columns, int depth);
product_fn *product_of(const vex_instruction &op)
{
    if (op.opcode == 0x5c)
        return op.prefix == 2 ? pair_product<from_bf16> : op.prefix == 3 ? pair_product<from_fp16> : nullptr;
    switch (op.prefix) {
    case 0:
        return byte_product<uint8_t, uint8_t>;
    case 1:
        return byte_product<uint8_t, int8_t>;
    case 2:
        return byte_product<int8_t, uint8_t>;
    default:
        return byte_product<int8_t, int8_t>;
    }
}

amx_outcome multiply(const vex_instruction &op)
{
    product_fn *product = product_of(op);
    const int c = op.reg, a = op.rm, b = op.vvvv;
    if (product == nullptr || a < 0 || c == a || c == b || a == b || !is_configured(c) || !is_configured(a) ||
        !is_configured(b))
        return amx_outcome::undefined;
    const uint16_t *used = state.config.row_bytes_used;
    const uint8_t *rows = state.config.rows;
    if (used[c] % 4 != 0 || used[a] % 4 != 0 || used[b] % 4 != 0 || rows[c] != rows[a] || used[c] != used[b] ||
        used[a] / 4 != rows[b])
        return amx_outcome::undefined;
    const unsigned before = _mm_getcsr();
    _mm_setcsr(0x9fc0); // to nearest, subnormals in and out are zeros, no traps: the unit does not look at MXCSR
    product(c, a, b, rows[c], used[c] / 4, used[a] / 4);
    _mm_setcsr(before);
    return amx_outcome::done;
}

// ldtilecfg, sttilecfg, tilerelease, tilezero.
amx_outcome configure(const vex_instruction &op, bool permitted)
{
    if (op.rm < 0 && op.prefix == 1) {
        memcpy(reinterpret_cast<void *>(op.address), &state.config, sizeof state.config);
        return amx_outcome::done;
    }
    if (op.rm == 0 && op.reg == 0 && op.prefix == 0) {
        memset(&state, 0, sizeof state);
        return amx_outcome::done;
    }
    if (!permitted)
        return amx_outcome::undefined;
    if (op.rm < 0 && op.prefix == 0) {
        configuration asked;
        memcpy(&asked, reinterpret_cast<const void *>(op.address), sizeof asked);
        if (!is_legal(asked))
            return amx_outcome::protection;
        memset(&state, 0, sizeof state);
        if (asked.palette != 0)
            state.config = asked;
        return amx_outcome::done;
    }
    if (op.rm >= 0 && op.prefix == 3 && is_configured(op.reg)) {
        memset(state.data[op.reg], 0, sizeof state.data[op.reg]);
        return amx_outcome::done;
    }
    return amx_outcome::undefined;
}

// tileloadd, tileloaddt1, tilestored: the index register is the distance of the rows.
amx_outcome move(const vex_instruction &op)
{
    if (op.rm >= 0 || !op.has_sib || op.prefix == 0 || !is_configured(op.reg))
        return amx_outcome::undefined;
    const uint64_t first = op.address - op.index_value;
    const size_t bytes = state.config.row_bytes_used[op.reg];
    if (op.prefix != 2)
        memset(state.data[op.reg], 0, sizeof state.data[op.reg]);
    for (int row = 0; row < state.config.rows[op.reg]; ++row) {
        void *memory = reinterpret_cast<void *>(first + static_cast<uint64_t>(row) * op.index_value);
        if (op.prefix == 2)
            memcpy(memory, state.data[op.reg][row], bytes);
        else
            memcpy(state.data[op.reg][row], memory, bytes);
    }
    return amx_outcome::done;
}

void on_illegal(int signal_number, siginfo_t *, void *frame)
{
    switch (tesh_test::emulate_amx(static_cast<ucontext_t *>(frame), true)) {
    case amx_outcome::done:
        return;
    case amx_outcome::protection:
        signal(SIGSEGV, SIG_DFL);
        syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), SIGSEGV);
        return;
    default:
        signal(signal_number, SIG_DFL);
    }
}
} // namespace

tesh_test::amx_outcome tesh_test::emulate_amx(ucontext_t *context, bool permitted)
{
    vex_instruction op;
    if (!vex_decode(context, 0, &op) || op.map != 2 || op.w || op.l)
        return amx_outcome::none;
    amx_outcome outcome = amx_outcome::none;
    if (op.opcode == 0x49)
        outcome = configure(op, permitted);
    else if (op.opcode == 0x4b)
        outcome = permitted ? move(op) : amx_outcome::undefined;
    else if (op.opcode == 0x5c || op.opcode == 0x5e)
        outcome = permitted ? multiply(op) : amx_outcome::undefined;
    if (outcome == amx_outcome::done)
        context->uc_mcontext.gregs[REG_RIP] += op.length;
    return outcome;
}

void tesh_test::install_amx_emulation()
{
    struct sigaction action = {};
    action.sa_sigaction = on_illegal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigaction(SIGILL, &action, nullptr);
}
