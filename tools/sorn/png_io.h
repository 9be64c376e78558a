/* PNG reading and writing for the sorn tool, through libpng.
 *
 * libpng reports errors by longjmp, which must not cross C++ frames with
 * destructors, so this part is plain C and hands back malloc'd pixels and a
 * message in a caller's buffer. */
#ifndef SORN_TOOL_PNG_IO_H
#define SORN_TOOL_PNG_IO_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SornToolPixels {
  int32_t width;
  int32_t height;
  int32_t channels; /* 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA */
  uint8_t *pixels;  /* rows packed; free() it */
} SornToolPixels;

/* Status of the calls below. */
enum {
  SORN_TOOL_PNG_OK = 0,
  SORN_TOOL_PNG_NOT_PNG = 1,   /* no PNG signature */
  SORN_TOOL_PNG_CORRUPT = 2,   /* libpng refused it, or it ended early */
  SORN_TOOL_PNG_DEPTH = 3,     /* a bit depth other than 1, 2, 4, 8 */
  SORN_TOOL_PNG_TOO_LARGE = 4, /* beyond the limits given */
  SORN_TOOL_PNG_NOMEM = 5,
  SORN_TOOL_PNG_WRITE = 6 /* the file could not be written */
};

/* Reads a whole PNG into 8-bit pixels: palettes become RGB or RGBA,
 * transparency chunks an alpha channel, grey of 1, 2, 4 bits becomes 8-bit.
 * 16-bit images are refused rather than silently narrowed. On failure
 * out->pixels is null and err holds the reason. */
int sorn_tool_png_read(FILE *f, int32_t maxside, int64_t maxbytes, SornToolPixels *out, char *err,
                       size_t errlen);

int sorn_tool_png_write(FILE *f, const uint8_t *pixels, int32_t width, int32_t height,
                        int32_t channels, char *err, size_t errlen);

#ifdef __cplusplus
}
#endif

#endif
