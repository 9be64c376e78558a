/* The public header must stay valid C99: this unit is compiled as C99 and
 * reports the layout of every core record as the C compiler sees it, for
 * test_header_layout.cpp to compare with the C++ view and the platform's
 * expected values. */
#if !defined(__STDC_VERSION__) || __STDC_VERSION__ != 199901L
#error "the header layout check must be compiled as C99"
#endif

#include <sorn.h>

#include <stddef.h>

/* One line of the report; test_header_layout.cpp declares the same. */
struct HeaderLayoutEntry {
  const char *name;
  size_t offset;
  size_t size;
};

size_t header_c99_layout(const struct HeaderLayoutEntry **out);

#define FIELD(T, f) {#T "." #f, offsetof(T, f), sizeof(((T *)0)->f)},
#define RECORD(T) {#T, 0, sizeof(T)},

static const struct HeaderLayoutEntry kLayout[] = {
    RECORD(SornArray)
    FIELD(SornArray, dims) FIELD(SornArray, bounds) FIELD(SornArray, strides)
    FIELD(SornArray, ndims) FIELD(SornArray, ndimsall) FIELD(SornArray, elemtype)
    FIELD(SornArray, reserved) FIELD(SornArray, marker) FIELD(SornArray, offset)
    FIELD(SornArray, data) FIELD(SornArray, link)
    RECORD(SornVolume)
    FIELD(SornVolume, origin) FIELD(SornVolume, size)
    RECORD(KuMark)
    FIELD(KuMark, w)
    RECORD(SornXE)
    FIELD(SornXE, mmstack) FIELD(SornXE, state) FIELD(SornXE, openarg)
    FIELD(SornXE, stackstore) FIELD(SornXE, mark) FIELD(SornXE, tail)
    RECORD(SornPackOperand)
    FIELD(SornPackOperand, type) FIELD(SornPackOperand, base) FIELD(SornPackOperand, origin)
    FIELD(SornPackOperand, strides)
    RECORD(SornPack)
    FIELD(SornPack, count) FIELD(SornPack, tolerance) FIELD(SornPack, tag) FIELD(SornPack, types)
    FIELD(SornPack, proc) FIELD(SornPack, name) FIELD(SornPack, xe) FIELD(SornPack, flags)
    FIELD(SornPack, data) FIELD(SornPack, total) FIELD(SornPack, keep) FIELD(SornPack, dims)
    FIELD(SornPack, op)
    RECORD(SornSliceOperand)
    FIELD(SornSliceOperand, origin) FIELD(SornSliceOperand, strides)
    RECORD(SornSlice)
    FIELD(SornSlice, total) FIELD(SornSlice, skip) FIELD(SornSlice, pack) FIELD(SornSlice, dims)
    FIELD(SornSlice, op)
    RECORD(SornDimPack)
    RECORD(SornStatus)
    RECORD(SornFlags)
    RECORD(SornElemType)
    RECORD(SornVrng)
    FIELD(SornVrng, lo) FIELD(SornVrng, hi)
    RECORD(SornSeShape)
    FIELD(SornSeShape, anchor) FIELD(SornSeShape, size)
    RECORD(SornSepShape)
    FIELD(SornSepShape, anchor) FIELD(SornSepShape, size) FIELD(SornSepShape, kernels)
    RECORD(SornBrShape)
    FIELD(SornBrShape, lo) FIELD(SornBrShape, hi) FIELD(SornBrShape, fill)
    RECORD(SornBorderSpec)
    FIELD(SornBorderSpec, kind) FIELD(SornBorderSpec, value)
    RECORD(SornSites)
    FIELD(SornSites, site) FIELD(SornSites, parsite)
};

size_t header_c99_layout(const struct HeaderLayoutEntry **out) {
  *out = kLayout;
  return sizeof kLayout / sizeof kLayout[0];
}

/* Constants must be usable in C constant expressions. */
typedef char check_dimpack[SORN_DIMPACK(3) == 0x413 ? 1 : -1];
typedef char check_channels[SORN_CHANNELS(11) == 4 ? 1 : -1];
typedef char check_elemsize[SORN_ELEMSIZE(SORN_F64) == 8 ? 1 : -1];
