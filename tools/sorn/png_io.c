#include "png_io.h"

#include <png.h>
#include <setjmp.h>
#include <stdlib.h>
#include <string.h>

/* What the error handler leaves behind for the code after setjmp. */
typedef struct ErrorSink {
  jmp_buf jump;
  char *text;
  size_t len;
} ErrorSink;

static void put_text(char *err, size_t errlen, const char *text) {
  if (err && errlen) {
    strncpy(err, text, errlen - 1);
    err[errlen - 1] = '\0';
  }
}

static void on_error(png_structp png, png_const_charp message) {
  ErrorSink *sink = (ErrorSink *)png_get_error_ptr(png);
  put_text(sink->text, sink->len, message);
  longjmp(sink->jump, 1);
}

/* The report of a codec that could not be set up. */
static int out_of_memory(char *err, size_t errlen) {
  put_text(err, errlen, "out of memory");
  return SORN_TOOL_PNG_NOMEM;
}

/* Warnings (unknown chunks, odd ICC profiles) don't stop a read. */
static void on_warning(png_structp png, png_const_charp message) {
  (void)png;
  (void)message;
}

/* A read that comes up short is a truncated file; libpng's own message for
 * it would only say "Read Error". */
static void read_bytes(png_structp png, png_bytep data, size_t length) {
  FILE *f = (FILE *)png_get_io_ptr(png);
  if (fread(data, 1, length, f) != length) png_error(png, "file ends too early (truncated)");
}

int sorn_tool_png_read(FILE *f, int32_t maxside, int64_t maxbytes, SornToolPixels *out, char *err,
                       size_t errlen) {
  unsigned char signature[8];
  ErrorSink sink = {.text = err, .len = errlen};
  out->width = out->height = out->channels = 0;
  out->pixels = NULL;
  if (fread(signature, 1, 8, f) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    put_text(err, errlen, "not a PNG file");
    return SORN_TOOL_PNG_NOT_PNG;
  }
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &sink, on_error, on_warning);
  if (!png) return out_of_memory(err, errlen);
  png_infop info = png_create_info_struct(png);
  /* Changed after setjmp and read after a longjmp: volatile. */
  uint8_t *volatile pixels = NULL;
  png_bytep *volatile rows = NULL;
  volatile int status = SORN_TOOL_PNG_CORRUPT;
  if (!info) {
    png_destroy_read_struct(&png, NULL, NULL);
    return out_of_memory(err, errlen);
  }
  if (setjmp(sink.jump)) {
    free(rows);
    free(pixels);
    png_destroy_read_struct(&png, &info, NULL);
    return status;
  }
  png_set_read_fn(png, f, read_bytes);
  png_set_sig_bytes(png, 8);
  png_set_user_limits(png, (png_uint_32)maxside, (png_uint_32)maxside);
  png_read_info(png, info);

  png_uint_32 width = png_get_image_width(png, info);
  png_uint_32 height = png_get_image_height(png, info);
  int depth = png_get_bit_depth(png, info);
  int type = png_get_color_type(png, info);
  if (depth > 8) {
    char text[96];
    snprintf(text, sizeof text, "unsupported bit depth %d (only 8-bit images are read)", depth);
    status = SORN_TOOL_PNG_DEPTH;
    png_error(png, text);
  }
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);

  int channels = png_get_channels(png, info);
  size_t rowbytes = png_get_rowbytes(png, info);
  if (channels < 1 || channels > 4 || rowbytes != (size_t)width * (size_t)channels) {
    png_error(png, "unsupported pixel layout");
  }
  if ((int64_t)rowbytes * (int64_t)height > maxbytes) {
    status = SORN_TOOL_PNG_TOO_LARGE;
    png_error(png, "image too large");
  }
  pixels = (uint8_t *)malloc(rowbytes * height);
  rows = (png_bytep *)malloc(sizeof(png_bytep) * height);
  if (!pixels || !rows) {
    status = SORN_TOOL_PNG_NOMEM;
    png_error(png, "out of memory");
  }
  for (png_uint_32 y = 0; y < height; ++y) rows[y] = pixels + (size_t)y * rowbytes;
  png_read_image(png, rows);
  png_read_end(png, NULL);

  free(rows);
  png_destroy_read_struct(&png, &info, NULL);
  out->width = (int32_t)width;
  out->height = (int32_t)height;
  out->channels = channels;
  out->pixels = pixels;
  return SORN_TOOL_PNG_OK;
}

static void write_bytes(png_structp png, png_bytep data, size_t length) {
  FILE *f = (FILE *)png_get_io_ptr(png);
  if (fwrite(data, 1, length, f) != length) png_error(png, "write failed");
}

static void flush_bytes(png_structp png) {
  FILE *f = (FILE *)png_get_io_ptr(png);
  if (fflush(f) != 0) png_error(png, "write failed");
}

int sorn_tool_png_write(FILE *f, const uint8_t *pixels, int32_t width, int32_t height,
                        int32_t channels, char *err, size_t errlen) {
  static const int types[5] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA,
                               PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA};
  if (channels < 1 || channels > 4 || width < 1 || height < 1) {
    put_text(err, errlen, "nothing to write");
    return SORN_TOOL_PNG_WRITE;
  }
  ErrorSink sink = {.text = err, .len = errlen};
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, on_error, on_warning);
  if (!png) return out_of_memory(err, errlen);
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_write_struct(&png, NULL);
    return out_of_memory(err, errlen);
  }
  if (setjmp(sink.jump)) {
    png_destroy_write_struct(&png, &info);
    return SORN_TOOL_PNG_WRITE;
  }
  png_set_write_fn(png, f, write_bytes, flush_bytes);
  png_set_IHDR(png, info, (png_uint_32)width, (png_uint_32)height, 8, types[channels],
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  size_t rowbytes = (size_t)width * (size_t)channels;
  for (int32_t y = 0; y < height; ++y) {
    png_write_row(png, (png_const_bytep)(pixels + (size_t)y * rowbytes));
  }
  png_write_end(png, NULL);
  png_destroy_write_struct(&png, &info);
  return SORN_TOOL_PNG_OK;
}
