// SPDX-License-Identifier: BSD-3-Clause
// A profile: its text form, its answers.
#include "tests/support/vcpu/profile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
using tesh_test::vcpu_leaf;
using tesh_test::vcpu_profile;

const vcpu_leaf *find(const vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf)
{
    for (int i = 0; i < profile->leaf_count; ++i) {
        if (profile->leaves[i].leaf == leaf && profile->leaves[i].subleaf == subleaf)
            return &profile->leaves[i];
    }
    return nullptr;
}

bool has_prefix(const char *text, const char *prefix)
{
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

bool parse_leaf(const char *item, vcpu_profile *profile)
{
    char *end = nullptr;
    const unsigned long leaf = std::strtoul(item, &end, 16);
    const unsigned long subleaf = *end == '.' ? std::strtoul(end + 1, &end, 16) : 0;
    std::uint32_t *registers =
        tesh_test::vcpu_registers(profile, static_cast<std::uint32_t>(leaf), static_cast<std::uint32_t>(subleaf));
    if (end == item || *end != '=' || registers == nullptr)
        return false;
    for (int i = 0; i < 4; ++i) {
        registers[i] = static_cast<std::uint32_t>(std::strtoul(end + 1, &end, 16));
        if (*end != (i < 3 ? ':' : 0))
            return false;
    }
    return true;
}

// EBX, EDX, ECX of leaf 0.
bool parse_vendor(const char *vendor, vcpu_profile *profile)
{
    if (std::strlen(vendor) != 12)
        return false;
    std::uint32_t *leaf0 = tesh_test::vcpu_registers(profile, 0, 0);
    constexpr int order[3] = {1, 3, 2};
    for (int i = 0; i < 3; ++i)
        std::memcpy(&leaf0[order[i]], vendor + 4 * i, 4);
    return true;
}

bool parse_item(const char *item, vcpu_profile *profile)
{
    if (has_prefix(item, "vendor="))
        return parse_vendor(item + 7, profile);
    if (has_prefix(item, "xcr0="))
        profile->xcr0 = std::strtoull(item + 5, nullptr, 16);
    else if (has_prefix(item, "permitted="))
        profile->permitted = std::strtoull(item + 10, nullptr, 16);
    else if (has_prefix(item, "grantable="))
        profile->grantable = std::strtoull(item + 10, nullptr, 16);
    else if (std::strcmp(item, "refuse_arch_prctl") == 0)
        profile->refuse_arch_prctl = true;
    else if (std::strcmp(item, "beyond_last_repeats") == 0)
        profile->beyond_last_repeats = true;
    else
        return parse_leaf(item, profile);
    return true;
}
} // namespace

std::uint32_t *tesh_test::vcpu_registers(vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf)
{
    if (const vcpu_leaf *found = find(profile, leaf, subleaf))
        return const_cast<vcpu_leaf *>(found)->registers;
    if (profile->leaf_count == vcpu_profile::leaf_bound)
        return nullptr;
    vcpu_leaf &added = profile->leaves[profile->leaf_count++];
    added = {leaf, subleaf, {0, 0, 0, 0}};
    // The first leaf of a range names its last one.
    const std::uint32_t first = leaf & 0x80000000u;
    if (leaf != first || subleaf != 0) {
        std::uint32_t *range = vcpu_registers(profile, first, 0);
        if (range != nullptr && range[0] < leaf)
            range[0] = leaf;
        if (range != nullptr && leaf == 7 && subleaf > 0) {
            std::uint32_t *leaf7 = vcpu_registers(profile, 7, 0);
            if (leaf7 != nullptr && leaf7[0] < subleaf)
                leaf7[0] = subleaf;
        }
    }
    return added.registers;
}

bool tesh_test::vcpu_parse(const char *text, vcpu_profile *profile)
{
    *profile = vcpu_profile();
    constexpr const char *blanks = " \n";
    for (text += std::strspn(text, blanks); *text != 0; text += std::strspn(text, blanks)) {
        char item[128];
        const std::size_t length = std::strcspn(text, blanks);
        if (length >= sizeof item)
            return false;
        std::memcpy(item, text, length);
        item[length] = 0;
        if (!parse_item(item, profile))
            return false;
        text += length;
    }
    return find(profile, 0, 0) != nullptr;
}

std::string tesh_test::vcpu_text(const vcpu_profile &profile)
{
    std::string text;
    char item[128];
    const auto add = [&](const char *format, auto... values) {
        std::snprintf(item, sizeof item, format, values...);
        text += text.empty() ? item : std::string(" ") + item;
    };
    for (int i = 0; i < profile.leaf_count; ++i) {
        const vcpu_leaf &l = profile.leaves[i];
        add("%x.%x=%x:%x:%x:%x", l.leaf, l.subleaf, l.registers[0], l.registers[1], l.registers[2], l.registers[3]);
    }
    const auto wide = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    add("xcr0=%llx permitted=%llx grantable=%llx", wide(profile.xcr0), wide(profile.permitted),
        wide(profile.grantable));
    if (profile.refuse_arch_prctl)
        text += " refuse_arch_prctl";
    if (profile.beyond_last_repeats)
        text += " beyond_last_repeats";
    return text;
}

void tesh_test::vcpu_cpuid(const vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf,
                           std::uint32_t registers[4])
{
    const std::uint32_t first = leaf & 0x80000000u;
    const vcpu_leaf *range = find(profile, first, 0);
    const std::uint32_t last = range != nullptr ? range->registers[0] : 0;
    if (leaf > last && leaf != first && profile->beyond_last_repeats)
        leaf = last;
    const vcpu_leaf *found = leaf <= last || leaf == first ? find(profile, leaf, subleaf) : nullptr;
    if (found == nullptr && leaf != 4 && leaf != 7 && leaf != 0xd && leaf != 0x14 && leaf != 0x1d && leaf != 0x1e &&
        leaf != 0x24 && leaf <= last)
        found = find(profile, leaf, 0); // a leaf without sub-leaves does not look at ECX
    for (int i = 0; i < 4; ++i)
        registers[i] = found != nullptr ? found->registers[i] : 0;
}

std::int64_t tesh_test::vcpu_arch_prctl(vcpu_profile *profile, std::int64_t code, std::uint64_t argument)
{
    constexpr std::int64_t get_supported = 0x1021, get_permitted = 0x1022, request = 0x1023;
    if (profile->refuse_arch_prctl)
        return -EINVAL;
    switch (code) {
    case get_supported:
        *reinterpret_cast<std::uint64_t *>(argument) = profile->xcr0;
        return 0;
    case get_permitted:
        *reinterpret_cast<std::uint64_t *>(argument) = profile->permitted;
        return 0;
    case request:
        if (argument >= 64 || (profile->xcr0 >> argument & 1) == 0)
            return -EOPNOTSUPP;
        if ((profile->grantable >> argument & 1) == 0)
            return -EPERM;
        profile->permitted |= std::uint64_t{1} << argument;
        return 0;
    default:
        return -EINVAL;
    }
}
