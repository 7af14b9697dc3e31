// SPDX-License-Identifier: BSD-3-Clause
// FMA4 in plain code, on the registers of a signal's context.
#include "tests/support/vcpu/fma4.h"

#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <xmmintrin.h>

#include <cmath>

#include "tests/support/vcpu/vex.h"

namespace
{
// dest = sign_product * (a * b) + sign_addend * c, by element; the signs alternate in two of the forms.
enum form { form_addsub, form_subadd, form_add, form_sub, form_negated_add, form_negated_sub };

struct fma4_instruction {
    form what;
    bool is_double, is_scalar, is_wide; // wide: 256 bits
    int immediate_register;
};

// VEX.66.0F3A, opcodes 5C to 5F and 68 to 6F, 78 to 7F, with an immediate byte.
bool decode(const ucontext_t *context, tesh_test::vex_instruction *vex, fma4_instruction *out)
{
    if (!vex_decode(context, 1, vex) || vex->map != 3 || vex->prefix != 1)
        return false;
    const int opcode = vex->opcode;
    if (opcode >= 0x5c && opcode <= 0x5f)
        out->what = opcode < 0x5e ? form_addsub : form_subadd;
    else if ((opcode >= 0x68 && opcode <= 0x6f) || (opcode >= 0x78 && opcode <= 0x7f))
        out->what = static_cast<form>(form_add + (opcode >= 0x78 ? 2 : 0) + ((opcode & 7) >= 4 ? 1 : 0));
    else
        return false;
    out->is_double = (opcode & 1) != 0;
    out->is_scalar = out->what >= form_add && (opcode & 2) != 0;
    out->is_wide = vex->l && !out->is_scalar;
    out->immediate_register = *vex->behind >> 4;
    return true;
}

// ---- The frame's vector registers: an FXSAVE image, and the upper halves behind it where the frame has them. ----
constexpr int xmm_at = 160, mxcsr_at = 24, magic_at = 464, xstate_bv_at = 512, upper_at = 576; // [bytes]
constexpr uint32_t magic_extended = 0x46505853;
constexpr uint64_t state_sse = 2, state_avx = 4;

unsigned char *image(const ucontext_t *context)
{
    return reinterpret_cast<unsigned char *>(context->uc_mcontext.fpregs);
}

bool has_upper(const ucontext_t *context)
{
    uint32_t magic;
    memcpy(&magic, image(context) + magic_at, sizeof magic);
    return magic == magic_extended;
}

uint64_t state_present(const ucontext_t *context)
{
    uint64_t bits = state_sse;
    if (has_upper(context))
        memcpy(&bits, image(context) + xstate_bv_at, sizeof bits);
    return bits;
}

void read_vector(const ucontext_t *context, int number, unsigned char value[32])
{
    const uint64_t present = state_present(context);
    memset(value, 0, 32);
    if ((present & state_sse) != 0)
        memcpy(value, image(context) + xmm_at + 16 * number, 16);
    if (has_upper(context) && (present & state_avx) != 0)
        memcpy(value + 16, image(context) + upper_at + 16 * number, 16);
}

// An area that is marked absent holds nothing: zeroed before it is marked present.
void write_vector(ucontext_t *context, int number, const unsigned char value[32])
{
    unsigned char *frame = image(context);
    uint64_t present = state_present(context);
    if ((present & state_sse) == 0)
        memset(frame + xmm_at, 0, 256);
    memcpy(frame + xmm_at + 16 * number, value, 16);
    if (!has_upper(context))
        return;
    if ((present & state_avx) == 0)
        memset(frame + upper_at, 0, 256);
    memcpy(frame + upper_at + 16 * number, value + 16, 16);
    present |= state_sse | state_avx;
    memcpy(frame + xstate_bv_at, &present, sizeof present);
}

template <class real>
void compute(const fma4_instruction &op, const unsigned char *a, const unsigned char *b, const unsigned char *c,
             unsigned char *result)
{
    const int count = op.is_scalar ? 1 : (op.is_wide ? 32 : 16) / static_cast<int>(sizeof(real));
    memset(result, 0, 32);
    for (int i = 0; i < count; ++i) {
        real x, y, z;
        memcpy(&x, a + sizeof(real) * static_cast<unsigned>(i), sizeof x);
        memcpy(&y, b + sizeof(real) * static_cast<unsigned>(i), sizeof y);
        memcpy(&z, c + sizeof(real) * static_cast<unsigned>(i), sizeof z);
        const bool odd = i % 2 != 0;
        const bool subtract = op.what == form_sub || op.what == form_negated_sub || (op.what == form_addsub && !odd) ||
                              (op.what == form_subadd && odd);
        if (op.what == form_negated_add || op.what == form_negated_sub)
            x = -x;
        const real r = std::fma(x, y, subtract ? -z : z);
        memcpy(result + sizeof(real) * static_cast<unsigned>(i), &r, sizeof r);
    }
}

void on_illegal(int signal_number, siginfo_t *, void *frame)
{
    if (!tesh_test::emulate_fma4(static_cast<ucontext_t *>(frame)))
        signal(signal_number, SIG_DFL);
}
} // namespace

bool tesh_test::emulate_fma4(ucontext_t *context)
{
    vex_instruction vex;
    fma4_instruction op;
    if (!decode(context, &vex, &op))
        return false;
    unsigned char first[32], rm[32], immediate[32], result[32];
    read_vector(context, vex.vvvv, first);
    read_vector(context, op.immediate_register, immediate);
    if (vex.rm >= 0) {
        read_vector(context, vex.rm, rm);
    } else {
        const int bytes = op.is_scalar ? (op.is_double ? 8 : 4) : op.is_wide ? 32 : 16;
        memcpy(rm, reinterpret_cast<const void *>(vex.address), static_cast<size_t>(bytes));
    }
    // Without W the second source is ModRM.rm and the third the immediate's register; with W the other way round.
    const unsigned char *second = vex.w ? immediate : rm, *third = vex.w ? rm : immediate;
    uint32_t mxcsr;
    memcpy(&mxcsr, image(context) + mxcsr_at, sizeof mxcsr);
    const unsigned here = _mm_getcsr();
    _mm_setcsr(mxcsr | 0x1f80); // the program's rounding, and no exception traps in here
    if (op.is_double)
        compute<double>(op, first, second, third, result);
    else
        compute<float>(op, first, second, third, result);
    mxcsr |= _mm_getcsr() & 0x3f;
    _mm_setcsr(here);
    memcpy(image(context) + mxcsr_at, &mxcsr, sizeof mxcsr);
    write_vector(context, vex.reg, result);
    context->uc_mcontext.gregs[REG_RIP] += vex.length;
    return true;
}

void tesh_test::install_fma4_emulation()
{
    struct sigaction action = {};
    action.sa_sigaction = on_illegal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigaction(SIGILL, &action, nullptr);
}
