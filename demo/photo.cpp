// SPDX-License-Identifier: BSD-3-Clause
// PNG files by libpng, grey, and back.
#include "demo/photo.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
[[noreturn]] void fail(const std::string &name, const char *why)
{
    std::fprintf(stderr, "%s: %s\n", name.c_str(), why);
    std::exit(1);
}
} // namespace

photo read_photo(const std::string &name)
{
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, name.c_str()))
        fail(name, image.message);
    image.format = PNG_FORMAT_GRAY;
    std::vector<png_byte> bytes(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr))
        fail(name, image.message);
    photo picture;
    picture.rows = image.height;
    picture.cols = image.width;
    picture.grey.resize(bytes.size());
    for (int64_t row = 0; row < picture.rows; ++row)
        for (int64_t col = 0; col < picture.cols; ++col)
            picture.at(row, col) = bytes[static_cast<size_t>(row * picture.cols + col)];
    return picture;
}

void write_photo(const std::string &name, const photo &picture)
{
    std::vector<png_byte> bytes(picture.grey.size());
    for (int64_t row = 0; row < picture.rows; ++row)
        for (int64_t col = 0; col < picture.cols; ++col) {
            const float value = std::min(255.0f, std::max(0.0f, std::round(picture.at(row, col))));
            bytes[static_cast<size_t>(row * picture.cols + col)] = static_cast<png_byte>(value);
        }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.cols);
    image.height = static_cast<png_uint_32>(picture.rows);
    image.format = PNG_FORMAT_GRAY;
    if (!png_image_write_to_file(&image, name.c_str(), 0, bytes.data(), 0, nullptr))
        fail(name, image.message);
}
