// SPDX-License-Identifier: BSD-3-Clause
// The list of other makers whose processors count as the maker's (TESH_TRUSTED_VENDORS). Tested by the vendor test and
// by the census, hence for general registers only.
#include "frame/service/processor.h"

extern "C" int32_t trusted_vendor_listed(const char *list)
{
    constexpr int64_t vendor_characters = 12;
    for (const char *item = list != nullptr ? list : TESH_TRUSTED_VENDORS_DEFAULT; *item != 0;) {
        while (*item == ' ' || *item == ',')
            ++item;
        const char *end = item, *next = item;
        for (; *next != 0 && *next != ','; ++next) {
            if (*next != ' ')
                end = next + 1;
        }
        const int64_t length = end - item;
        if (length == 3 && item[0] == 'a' && item[1] == 'n' && item[2] == 'y')
            return 1;
        if (length == vendor_characters && processor_vendor_is(item))
            return 1;
        item = next;
    }
    return 0;
}
