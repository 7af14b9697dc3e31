// SPDX-License-Identifier: BSD-3-Clause
#include "tests/support/vcpu/fma4.h"

#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <xmmintrin.h>

#include <cmath>

namespace
{
// dest = sign_product * (a * b) + sign_addend * c, by element; the signs alternate in two of the forms.
enum form { form_addsub, form_subadd, form_add, form_sub, form_negated_add, form_negated_sub };

struct fma4_instruction {
    form what;
    bool is_double, is_scalar, is_wide;      // wide: 256 bits
    bool memory_is_third;                    // W 0: the second source is ModRM.rm, the third the immediate's register
    int dest, first, immediate_register, rm; // register numbers; rm -1: memory
    uint64_t address;
    int length; // [bytes]
};

// Numbers of the general registers as instructions number them.
constexpr int general_registers[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                                       REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};

uint64_t general(const ucontext_t *context, int number)
{
    return static_cast<uint64_t>(context->uc_mcontext.gregs[general_registers[number]]);
}

int64_t displacement(const unsigned char *at, int bytes)
{
    int32_t wide = 0;
    if (bytes == 1)
        return static_cast<int8_t>(*at);
    memcpy(&wide, at, 4);
    return wide;
}

// ModRM and what follows, at m; x and b extend index and base. tail: bytes of the instruction behind the operand.
int decode_operand(const ucontext_t *context, const unsigned char *m, int x, int b, int tail, fma4_instruction *out)
{
    const int mod = m[0] >> 6, low = m[0] & 7;
    out->rm = -1;
    if (mod == 3) {
        out->rm = low | b << 3;
        return 1;
    }
    int length = 1;
    const int displacement_bytes = mod == 1 ? 1 : mod == 2 ? 4 : 0;
    if (low == 4) {
        const int sib = m[length++];
        const int index = (sib >> 3 & 7) | x << 3, base = sib & 7;
        out->address = index == 4 ? 0 : general(context, index) << (sib >> 6);
        if (base == 5 && mod == 0) {
            out->address += static_cast<uint64_t>(displacement(m + length, 4));
            return length + 4;
        }
        out->address += general(context, base | b << 3);
    } else if (low == 5 && mod == 0) {
        const uint64_t next = reinterpret_cast<uint64_t>(m) + static_cast<uint64_t>(length + 4 + tail);
        out->address = next + static_cast<uint64_t>(displacement(m + length, 4));
        return length + 4;
    } else {
        out->address = general(context, low | b << 3);
    }
    if (displacement_bytes > 0)
        out->address += static_cast<uint64_t>(displacement(m + length, displacement_bytes));
    return length + displacement_bytes;
}

// VEX.66.0F3A, opcodes 5C to 5F and 68 to 6F, 78 to 7F.
bool decode(const ucontext_t *context, fma4_instruction *out)
{
    const unsigned char *ip = reinterpret_cast<const unsigned char *>(context->uc_mcontext.gregs[REG_RIP]);
    if (ip[0] != 0xc4 || (ip[1] & 0x1f) != 3 || (ip[2] & 3) != 1)
        return false;
    const int opcode = ip[3];
    if (opcode >= 0x5c && opcode <= 0x5f)
        out->what = opcode < 0x5e ? form_addsub : form_subadd;
    else if ((opcode >= 0x68 && opcode <= 0x6f) || (opcode >= 0x78 && opcode <= 0x7f))
        out->what = static_cast<form>(form_add + (opcode >= 0x78 ? 2 : 0) + ((opcode & 7) >= 4 ? 1 : 0));
    else
        return false;
    const int r = (ip[1] >> 7 & 1) ^ 1, x = (ip[1] >> 6 & 1) ^ 1, b = (ip[1] >> 5 & 1) ^ 1;
    out->is_double = (opcode & 1) != 0;
    out->is_scalar = out->what >= form_add && (opcode & 2) != 0;
    out->is_wide = (ip[2] & 4) != 0 && !out->is_scalar;
    out->memory_is_third = (ip[2] & 0x80) != 0;
    out->first = (ip[2] >> 3 & 15) ^ 15;
    out->dest = (ip[4] >> 3 & 7) | r << 3;
    const int operand_length = decode_operand(context, ip + 4, x, b, 1, out);
    out->immediate_register = ip[4 + operand_length] >> 4;
    out->length = 4 + operand_length + 1;
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
    fma4_instruction op;
    if (!decode(context, &op))
        return false;
    unsigned char first[32], rm[32], immediate[32], result[32];
    read_vector(context, op.first, first);
    read_vector(context, op.immediate_register, immediate);
    if (op.rm >= 0) {
        read_vector(context, op.rm, rm);
    } else {
        const int bytes = op.is_scalar ? (op.is_double ? 8 : 4) : op.is_wide ? 32 : 16;
        memcpy(rm, reinterpret_cast<const void *>(op.address), static_cast<size_t>(bytes));
    }
    const unsigned char *second = op.memory_is_third ? immediate : rm, *third = op.memory_is_third ? rm : immediate;
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
    write_vector(context, op.dest, result);
    context->uc_mcontext.gregs[REG_RIP] += op.length;
    return true;
}

void tesh_test::install_fma4_emulation()
{
    struct sigaction action = {};
    action.sa_sigaction = on_illegal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigaction(SIGILL, &action, nullptr);
}
