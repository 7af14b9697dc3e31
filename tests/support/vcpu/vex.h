// SPDX-License-Identifier: BSD-3-Clause
// Decoding of three-byte VEX instructions out of a signal's context.
#pragma once
#include <stdint.h>
#include <string.h>
#include <ucontext.h>

namespace tesh_test
{
struct vex_instruction {
    int map, prefix, opcode; // prefix: 0 none, 1 66, 2 F3, 3 F2
    bool w, l;
    int reg, vvvv, rm; // register numbers; rm -1: memory
    uint64_t address;  // of the memory operand
    bool has_sib;
    uint64_t index_value;        // the scaled index, which the address holds, too
    int length;                  // [bytes], an immediate byte included where there is one
    const unsigned char *behind; // what follows the operand
};
} // namespace tesh_test

namespace
{
// Numbers of the general registers as instructions number them.
constexpr int vex_general_registers[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                                           REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};

inline uint64_t vex_general(const ucontext_t *context, int number)
{
    return static_cast<uint64_t>(context->uc_mcontext.gregs[vex_general_registers[number]]);
}

inline uint64_t vex_displacement(const unsigned char *at, int bytes)
{
    int32_t wide = 0;
    if (bytes == 1)
        wide = static_cast<int8_t>(*at);
    else if (bytes == 4)
        memcpy(&wide, at, 4);
    return static_cast<uint64_t>(int64_t{wide});
}

// ModRM and what belongs to it, at m; x and b extend index and base. tail: bytes of the instruction behind it, which an
// address relative to the instruction pointer counts. Answers the length.
inline int vex_decode_operand(const ucontext_t *context, const unsigned char *m, int x, int b, int tail,
                              tesh_test::vex_instruction *out)
{
    const int mod = m[0] >> 6, low = m[0] & 7;
    if (mod == 3) {
        out->rm = low | b << 3;
        return 1;
    }
    out->rm = -1;
    int length = 1, displacement_bytes = mod == 1 ? 1 : mod == 2 ? 4 : 0;
    uint64_t base = 0;
    if (low == 4) {
        const int sib = m[length++], index = (sib >> 3 & 7) | x << 3;
        out->has_sib = true;
        out->index_value = index == 4 ? 0 : vex_general(context, index) << (sib >> 6);
        if ((sib & 7) == 5 && mod == 0)
            displacement_bytes = 4;
        else
            base = vex_general(context, (sib & 7) | b << 3);
    } else if (low == 5 && mod == 0) {
        displacement_bytes = 4;
        base = reinterpret_cast<uint64_t>(m) + static_cast<uint64_t>(length + 4 + tail);
    } else {
        base = vex_general(context, low | b << 3);
    }
    out->address = base + out->index_value + vex_displacement(m + length, displacement_bytes);
    return length + displacement_bytes;
}

// False where no three-byte VEX instruction stands at the instruction pointer.
inline bool vex_decode(const ucontext_t *context, int immediate_bytes, tesh_test::vex_instruction *out)
{
    const unsigned char *ip = reinterpret_cast<const unsigned char *>(context->uc_mcontext.gregs[REG_RIP]);
    if (ip[0] != 0xc4)
        return false;
    memset(out, 0, sizeof *out);
    const int r = (ip[1] >> 7 & 1) ^ 1, x = (ip[1] >> 6 & 1) ^ 1, b = (ip[1] >> 5 & 1) ^ 1;
    out->map = ip[1] & 0x1f;
    out->w = (ip[2] & 0x80) != 0;
    out->vvvv = (ip[2] >> 3 & 15) ^ 15;
    out->l = (ip[2] & 4) != 0;
    out->prefix = ip[2] & 3;
    out->opcode = ip[3];
    out->reg = (ip[4] >> 3 & 7) | r << 3;
    const int operand_length = vex_decode_operand(context, ip + 4, x, b, immediate_bytes, out);
    out->behind = ip + 4 + operand_length;
    out->length = 4 + operand_length + immediate_bytes;
    return true;
}
} // namespace
