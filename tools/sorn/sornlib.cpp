// The tool's few words with the library: records over images, and statuses
// told by their names.
#include "cli.h"

namespace sorn::tool {

SornArray array_of(void *data, int32_t rows, int32_t cols, int32_t channels, uint32_t type,
                   int32_t rowstride) {
  SornArray a;
  int32_t dims[3] = {rows, cols, channels};
  int32_t esize = SORN_ELEMSIZE(type);
  int32_t strides[3] = {rowstride, channels * esize, esize};
  // Three cells given, none in front of them.
  __sorn_array__$xtrn(&a, 3 | 3 << 8, dims, type, data, nullptr, strides);
  return a;
}

SornArray array_of(const Image &image) {
  // The library only reads a source; the record type has no const form.
  return array_of(const_cast<uint8_t *>(image.pixels.data()), image.height, image.width,
                  image.channels, SORN_U8, int32_t(image.rowstride()));
}

namespace {
struct Known {
  SornStatus status;
  const char *name;
  const char *meaning;
};
constexpr Known kKnown[] = {
    {SORN_EINVAL, "SORN_EINVAL", "invalid argument"},
    {SORN_ENOMEM, "SORN_ENOMEM", "out of memory"},
    {SORN_ENOSPC, "SORN_ENOSPC", "empty region of interest"},
    {SORN_ENOTSUP, "SORN_ENOTSUP", "not supported"},
    {SORN_ENOTIMP, "SORN_ENOTIMP", "not implemented"},
    {SORN_EAGAIN, "SORN_EAGAIN", "try again"},
};
}  // namespace

std::string status_name(SornStatus status) {
  if (status == SORN_OK) return "SORN_OK";
  for (const Known &k : kKnown) {
    if (k.status == status) return k.name;
  }
  return "status " + std::to_string(status);
}

void check_status(SornStatus status, const std::string &what) {
  if (status >= 0) return;
  for (const Known &k : kKnown) {
    if (k.status == status) input_error(what + ": " + k.name + " (" + k.meaning + ")");
  }
  input_error(what + ": library status " + std::to_string(status));
}

}  // namespace sorn::tool
