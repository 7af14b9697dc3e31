// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// The frequency [GHz] that the last 16 characters of a processor's brand string name ("CPU @ 2.40GHz"); 0 or below if
// they name none.
double clocks_brand_frequency(const char text[16]);
