// SPDX-License-Identifier: BSD-3-Clause
// The reading of a brand string, apart from the processor that has it.
#pragma once

// The frequency [GHz] that the last 16 characters of a processor's brand string name ("CPU @ 2.40GHz"); 0 or below if
// they name none.
double clocks_brand_frequency(const char text[16]);
