// Fill limits of the element types.
#include <sorn.h>

SornStatus sorn_defillvals(SornElemType type, double *hi, double *lo, int32_t nchan) {
  double top, bottom;
  switch (type) {
    case SORN_U8: top = 255.0; bottom = 0.0; break;
    case SORN_U16: top = 65535.0; bottom = 0.0; break;
    case SORN_U32: top = 4294967295.0; bottom = 0.0; break;
    case SORN_S8: top = 127.0; bottom = -128.0; break;
    case SORN_S16: top = 32767.0; bottom = -32768.0; break;
    case SORN_S32: top = 2147483647.0; bottom = -2147483648.0; break;
    // Floats have no type limits worth filling with; they take the unit range.
    case SORN_F32: top = 1.0; bottom = 0.0; break;
    case SORN_U64: case SORN_S64: case SORN_F64: case 15: return SORN_ENOTSUP;
    default: return SORN_EINVAL;
  }
  for (int32_t k = 0; k < nchan; ++k) {
    if (hi) hi[k] = top;
    if (lo) lo[k] = bottom;
  }
  return SORN_OK;
}
