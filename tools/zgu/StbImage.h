#pragma once

// stb's image reader and writer as the tool includes them: their headers
// leave some fields of their own structs uninitialised, which the project's
// warnings would otherwise flag in every file that uses them. Stb.cpp holds
// the implementation.

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif
#include <stb_image.h>
#include <stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
