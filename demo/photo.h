// SPDX-License-Identifier: BSD-3-Clause
// Grey PNG pictures as column-major matrices of floats: element (row, column) of the picture lies at column*rows + row.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct photo {
    int64_t rows = 0, cols = 0;
    std::vector<float> grey; // rows x cols, 0 to 255
    float &at(int64_t row, int64_t col) { return grey[static_cast<size_t>(col * rows + row)]; }
    float at(int64_t row, int64_t col) const { return grey[static_cast<size_t>(col * rows + row)]; }
};

// Both end the program with a message if the file cannot be used.
photo read_photo(const std::string &name);
void write_photo(const std::string &name, const photo &picture);
