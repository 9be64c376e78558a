/*
 * sorn.h - the public interface of libSorn.so.1 and of its base library
 * libKu.so.2.
 *
 * Sorn works on caller-owned pixel arrays described by small flat records
 * (SornArray, SornVolume) and takes its scratch memory from an execution
 * environment (SornXE). Every operation runs on the calling thread and
 * answers a SornStatus; nothing is kept across calls but the records the
 * caller opens and closes explicitly.
 *
 * Valid C99 and C++. Names with '$' follow the library's suffix convention
 * ($I in place, $C scalar operand, $L/$LS packed dimension counts, ...);
 * GCC and Clang accept '$' in identifiers.
 *
 * C types that the interface leaves open are fixed once here:
 *   statuses         SornStatus   (int64_t)
 *   the flags word   SornFlags    (uint64_t)
 *   counts, kinds, indexes, extents, coordinates: int32_t
 *   byte sizes of memory: size_t
 *   truth values:    int (0 or 1)
 *   constants:       double
 */
#ifndef SORN_H
#define SORN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================
 * Core: element types, statuses, records
 * ====================================================================== */

typedef int64_t SornStatus;
typedef uint64_t SornFlags;
typedef uint32_t SornElemType;
/* Dimension-packing word: bits 0-3 n, 4-7 off, 8-12 total = n + off. */
typedef uint32_t SornDimPack;

#define SORN_OK       ((SornStatus)0)
#define SORN_EINVAL   ((SornStatus)-65514) /* -0x10000 - 22 */
#define SORN_ENOMEM   ((SornStatus)-65524) /* -0x10000 - 12 */
#define SORN_ENOSPC   ((SornStatus)-65508) /* -0x10000 - 28: empty ROI */
#define SORN_ENOTSUP  ((SornStatus)-65441) /* -0x10000 - 95 */
#define SORN_ENOTIMP  ((SornStatus)-65498) /* -0x10000 - 38 */
#define SORN_EAGAIN   ((SornStatus)-65525) /* -0x10000 - 11, never leaves the library */

/* Element type codes: size class in bits 0-2, bit 3 for signed and float. */
#define SORN_U8   1u
#define SORN_U16  2u
#define SORN_U32  3u
#define SORN_U64  4u
#define SORN_S8   9u
#define SORN_S16 10u
#define SORN_S32 11u
#define SORN_S64 12u
#define SORN_F32 13u
#define SORN_F64 14u
/* A type code by the token that kernel names and type tables spell it with:
 * SORN_TYPECODE(s16) is SORN_S16. The one map from a table's tokens to
 * codes, for the library's lookups, tests and benchmarks alike. */
#define SORN_TYPECODE(t) SORN_TYPECODE_##t
#define SORN_TYPECODE_u8  SORN_U8
#define SORN_TYPECODE_u16 SORN_U16
#define SORN_TYPECODE_u32 SORN_U32
#define SORN_TYPECODE_u64 SORN_U64
#define SORN_TYPECODE_s8  SORN_S8
#define SORN_TYPECODE_s16 SORN_S16
#define SORN_TYPECODE_s32 SORN_S32
#define SORN_TYPECODE_s64 SORN_S64
#define SORN_TYPECODE_f32 SORN_F32
#define SORN_TYPECODE_f64 SORN_F64
/* Every element type by its token, for what goes over all of them (the
 * Python module's map from numpy's types, for one). */
#define SORN_ELEM_TYPES(X) X(u8) X(u16) X(u32) X(u64) X(s8) X(s16) X(s32) X(s64) X(f32) X(f64)
/* Bit c set: code c is a known type (1-4 and 9-15). */
#define SORN_KNOWN_TYPES 0xfe1eu
/* Bytes per element, always from the size class (code & 7). */
#define SORN_ELEMSIZE(code) \
  ((((code) & 7u) == 1u) ? 1 : (((code) & 7u) == 2u) ? 2 : \
   (((code) & 7u) == 3u || ((code) & 7u) == 5u) ? 4 : \
   (((code) & 7u) == 4u || ((code) & 7u) == 6u) ? 8 : 0)
/* Channel count of a channels word: 1-4, plus one more for bit 3. */
#define SORN_CHANNELS(w) ((int32_t)(((w) & 7) + (((w) >> 3) & 1)))
/* Four-character tags, spelled from the high byte to the low one. */
#define SORN_FOURCC(a, b, c, d) \
  ((uint32_t)(((uint32_t)(uint8_t)(a) << 24) | ((uint32_t)(uint8_t)(b) << 16) | \
              ((uint32_t)(uint8_t)(c) << 8) | (uint32_t)(uint8_t)(d)))
/* The dimension-packing word an entry point builds for an ndims record. */
#define SORN_DIMPACK(ndims) ((SornDimPack)(((4 - (ndims)) << 4) | (ndims) | 0x400))

/* Flag bits of the core frame. */
#define SORN_F_PROBE        0x1ull
#define SORN_F_PLAIN        0x2ull      /* SornXEuseSimd answers false */
#define SORN_F_MODE1        0x4ull      /* set by the frame in mode 1 */
#define SORN_F_CHFORMAT     0xf0ull     /* channel-format nibble */
#define SORN_F_GAPTOL       0x100ull
#define SORN_F_GAPTOL2      0x200ull

/* A non-owning description of an array of up to four cells of extent:
 * cell 0 depth (planes), 1 rows, 2 columns, 3 channels. 88 bytes. */
typedef struct SornArray {
  int32_t dims[4];     /* site extents, right-aligned; dims[3] the channels word */
  int32_t bounds[4];   /* extents of the parent */
  int32_t strides[4];  /* bytes: plane, row, pixel, element */
  uint16_t ndims;      /* 3 or 4 */
  uint16_t ndimsall;
  uint32_t elemtype;   /* SornElemType */
  uint32_t reserved;
  uint32_t marker;     /* 0x22 from the constructors */
  int64_t offset;      /* bytes from data to the site's first element */
  void *data;          /* not owned */
  uint64_t link;
} SornArray;

/* Region of interest: origin then size, four i32 cells each. The entries
 * name theirs by what they do: `roi` or `<operand>Roi` decides the extent
 * of the call; `<operand>Site` of another operand gives only its start
 * (its size cells are not read). A null pointer is the whole array. */
typedef struct SornVolume {
  int32_t origin[4];
  int32_t size[4];
} SornVolume;

/* ======================================================================
 * Core: execution environment and memory stacks
 * ====================================================================== */

/* A memory stack's level: three words, from KuSMEMSTGgetstate. */
typedef struct KuMark {
  uint64_t w[3];
} KuMark;

typedef struct SornXE {
  void *mmstack;          /* the memory stack, or null until first needed */
  uint64_t state;         /* 1 initialised; 16 record lives on its own stack */
  uint64_t openarg;       /* second argument of a lazy KuSMEMSTGopen */
  uint64_t stackstore[6]; /* room for a stack owned by this record */
  KuMark mark;            /* the stack's level at attachment */
  uint64_t tail;
} SornXE;

#define SORN_XE_INITED  1u
#define SORN_XE_ONSTACK 16u

/* ======================================================================
 * Core: the call frame
 * ====================================================================== */

/* Slice callbacks have the shape
 *   proc(xe, flags, data, pack, dims, type0, base0, origin0, strides0, ...)
 * with one group of four per operand; the frame calls them with the arity
 * of the pack. SornSliceProc is the generic pointer type they are stored as
 * (cast a callback to it, as to any generic function pointer). */
typedef void (*SornSliceProc)(void);

typedef struct SornPackOperand {
  uint32_t type;
  void *base;
  int32_t *origin;   /* 'off' cells before the first of the n cells, or null */
  int32_t *strides;  /* likewise */
} SornPackOperand;

typedef struct SornPack {
  uint16_t count;       /* operands, 1 to 5 */
  int16_t tolerance;    /* gap tolerance request */
  uint32_t tag;         /* FourCC of the operation */
  uint32_t types;       /* a nibble per operand; bits 24-27 the channels nibble */
  SornSliceProc proc;
  const char *name;     /* "unknown" */
  struct SornXE *xe;
  SornFlags flags;
  void *data;           /* the operation's own arguments */
  uint32_t total;       /* n + off */
  int32_t keep;         /* dimensions left by reduction, 2..3 */
  int32_t *dims;        /* 'off' cells before the first of the n cells */
  SornPackOperand op[5];
} SornPack;

typedef struct SornSliceOperand {
  int32_t *origin;
  int32_t *strides;
} SornSliceOperand;

typedef struct SornSlice {
  uint16_t total;
  uint16_t skip;
  uint32_t pack;        /* SornDimPack for the callback */
  int32_t *dims;        /* first kept cell */
  SornSliceOperand op[5];
} SornSlice;

/* Start actions registered with __ku_crtaction. */
typedef struct KuCrtAction {
  int32_t (*run)(void *arg);
  void *runarg;
  void (*end)(void *arg);
  void *endarg;
  int32_t priority;
  /* links, kept by the start-up service */
  struct KuCrtAction *left, *right, *parent; /* ordered tree */
  int32_t height;
  uint64_t seq;                               /* registration order */
  struct KuCrtAction *next, *prev;            /* end ring */
} KuCrtAction;

/* ---------------- Part of the base library libKu.so.2 ---------------- */

void *KuSMEMSTGopen(void *store, uint64_t arg, int32_t flags);
/* align: any power of two (0 means 16). Null when memory runs out. */
void *KuSMEMSTGaalloc(void *stack, size_t size, size_t align, int32_t flags);
/* Returns the stack to its level from before 'block' was taken. */
void KuSMEMSTGfree(void *stack, void *block);
KuMark *KuSMEMSTGgetstate(KuMark *mark, void *stack, uint64_t arg);
void KuSMEMSTGsetstate(void *stack, const KuMark *mark);
void KuSMEMSTGclear(void *stack);
void KuMEMSTGclose(void *stack);
void KuMEMSTGdestroy(void *stack);
/* The word a stack was opened with (its parent stack, when it has one). */
uint64_t KuSMEMSTGparent(void *stack);
void *_KuMcalloc(size_t count, size_t size, int32_t flags);
void *_KuMrealloc(void *block, size_t size, int32_t flags);
void _KuMfree(void *block);
void KuMfree(void *block);

/* ---------------- Element types, vectors, volumes ---------------- */

int32_t *sorn_vec__dup(int32_t n, int32_t *v, int32_t x);
int32_t *sorn_vec__assign(int32_t n, int32_t *d, const int32_t *s);
int sorn_vec__assign_$Z(int32_t n, int32_t *d, const int32_t *s);
int32_t *sorn_vec_xassign(int32_t nd, int32_t *d, int32_t ns, const int32_t *s);
int32_t *sorn_vec__neg(int32_t n, int32_t *d, const int32_t *a);
int32_t *sorn_vec__neg_$I(int32_t n, int32_t *a);
int32_t *sorn_vec__add(int32_t n, int32_t *d, const int32_t *a, const int32_t *b);
int32_t *sorn_vec__add_$I(int32_t n, int32_t *a, const int32_t *b);
int32_t *sorn_vec__add_$C(int32_t n, int32_t *d, const int32_t *a, int32_t x);
int32_t *sorn_vec__add_$C$I(int32_t n, int32_t *a, int32_t x);
int32_t *sorn_vec__sub(int32_t n, int32_t *d, const int32_t *a, const int32_t *b);
int32_t *sorn_vec__sub_$I(int32_t n, int32_t *a, const int32_t *b);
int32_t *sorn_vec__sub_$C(int32_t n, int32_t *d, const int32_t *a, int32_t x);
int32_t *sorn_vec__sub_$C$I(int32_t n, int32_t *a, int32_t x);
int32_t *sorn_vec__rsb(int32_t n, int32_t *d, const int32_t *a, const int32_t *b);
int32_t *sorn_vec__rsb_$I(int32_t n, int32_t *a, const int32_t *b);
int32_t *sorn_vec__rsb_$C(int32_t n, int32_t *d, const int32_t *a, int32_t x);
int32_t *sorn_vec__rsb_$C$I(int32_t n, int32_t *a, int32_t x);
int32_t *sorn_vec__min(int32_t n, int32_t *d, const int32_t *a, const int32_t *b);
int32_t *sorn_vec__min_$I(int32_t n, int32_t *a, const int32_t *b);
int32_t *sorn_vec__max(int32_t n, int32_t *d, const int32_t *a, const int32_t *b);
int32_t *sorn_vec__max_$I(int32_t n, int32_t *a, const int32_t *b);
int sorn_vec__equal(int32_t n, const int32_t *a, const int32_t *b);
int sorn_vec__equal0(int32_t n, const int32_t *v);
int32_t sorn_vec_mkloff(int32_t n, const int32_t *c, const int32_t *s);
int32_t sorn_vec_mkloff_$L(SornDimPack pack, const int32_t *c, const int32_t *s);
int32_t sorn_vec_mkloff_$LS(SornDimPack pack, const int32_t *c, const int32_t *s);
int32_t *sorn_vec_fromloff(int32_t n, int32_t *out, const int32_t *s, int32_t off);
int32_t *sorn_vec_update_$loff(int32_t n, int32_t *c, const int32_t *s, int32_t off);
void *sorn_advance_ptr(const void *p, int32_t off);
void *sorn_base_at_$2d(const void *p, int32_t off, int32_t y, int32_t x, const int32_t *s);

int sorn_volume__empty(int32_t n, const int32_t *size);
int64_t sorn_volume__capacity(int32_t n, const int32_t *size);
int64_t sorn_volume__capacity_$Q(int32_t n, const int32_t *size);
int sorn__intersecI(int32_t n, int32_t *o1, int32_t *s1, const int32_t *o2, const int32_t *s2);
int sorn__intersec(int32_t n, int32_t *oo, int32_t *so, const int32_t *o1, const int32_t *s1,
                   const int32_t *o2, const int32_t *s2);
int sorn_intersecIS(int32_t n, int32_t *o1, int32_t *s1, const int32_t *o2, const int32_t *s2);
int sorn_intersecS(int32_t n, int32_t *oo, int32_t *so, const int32_t *o1, const int32_t *s1,
                   const int32_t *o2, const int32_t *s2);

int32_t *__sorn_dims__$v(int32_t *out, int32_t n, const int32_t *v);
int32_t *__sorn_dims__$gv(int32_t *out, int32_t n, const int32_t *v);
int32_t *__sorn_Nvolume__$v(int32_t *out, int32_t n, const int32_t *v);
int32_t *__sorn_Nvolume__$gv(int32_t *out, int32_t n, const int32_t *v);
int32_t *__sorn_dims__$v$L(int32_t *out, SornDimPack pack, const int32_t *v);
int32_t *__sorn_dims__$gv$L(int32_t *out, SornDimPack pack, const int32_t *v);
int32_t *__sorn_Nvolume__$v$L(int32_t *out, SornDimPack pack, const int32_t *v);
int32_t *__sorn_Nvolume__$gv$L(int32_t *out, SornDimPack pack, const int32_t *v);

size_t sorn_vmemsize(int32_t n, const int32_t *dims, int32_t *strides, int32_t slack);
size_t sorn_vmemsizeL(SornDimPack pack, const int32_t *dims, int32_t *strides, int32_t slack);
size_t sorn__vmemsize0(int32_t d, int32_t s, int32_t slack);

uint32_t sorn_xoverlappedLS(const void *p0, int32_t off0, SornDimPack pack0, const int32_t *o0,
                            const int32_t *s0, const int32_t *st0, const void *p1, int32_t off1,
                            SornDimPack pack1, const int32_t *o1, const int32_t *s1,
                            const int32_t *st1);
uint32_t sorn_overlappedLS(SornDimPack pack, const int32_t *s, const void *p0, const int32_t *o0,
                           const int32_t *st0, const void *p1, const int32_t *o1,
                           const int32_t *st1);
uint32_t sorn__overlapped(int32_t n, const int32_t *s, const void *p0, const int32_t *st0,
                          const void *p1, const int32_t *st1);
uint32_t sorn_arr__overlapped(const SornArray *a, const SornArray *b, int32_t n, const int32_t *oa,
                              const int32_t *sa, const int32_t *ob, const int32_t *sb);
uint32_t sorn_arr_overlapped(const SornArray *a, const SornArray *b, const SornVolume *roiA,
                             const SornVolume *roiB);

SornArray *__sorn_array__$xtrn(SornArray *rec, SornDimPack pack, const int32_t *dims,
                               SornElemType elemtype, void *data, const int32_t *origin,
                               const int32_t *strides);
SornArray *__sorn_array__$xtrn$3(SornArray *rec, int32_t rows, int32_t cols, int32_t chword,
                                 SornElemType elemtype, void *data, int32_t oy, int32_t ox,
                                 int32_t rowstride);
SornArray *__sorn_array__$cp$xtrn(SornArray *dst, const SornArray *src);
SornArray *__sorn_array__$_sar(SornArray *dst, const SornArray *src, int32_t n,
                               const int32_t *origin, const int32_t *size);

int sorn_arr__siteof(const SornArray *a, int32_t n, int32_t *o, int32_t *s);
SornVolume *sorn_arr_siteof(const SornArray *a, SornVolume *roi);
int sorn_arr__siteofAt(const SornArray *a, int32_t n, int32_t *o, int32_t *s, const int32_t *at);
int sorn_arr__siteofAt_$g2(const SornArray *a, int32_t *o, int32_t *s, int32_t y, int32_t x);
SornVolume *sorn_arr_siteofAt_$gv(const SornArray *a, SornVolume *roi, int32_t n, const int32_t *v);
SornVolume *sorn_arr_siteofAt_$g2(const SornArray *a, SornVolume *roi, int32_t y, int32_t x);
int sorn_arr__parsiteof(const SornArray *a, int32_t n, int32_t *o, int32_t *s);
SornVolume *sorn_arr_parsiteof(const SornArray *a, SornVolume *roi);
int sorn_arr__adjorgetRoi(const SornArray *a, int32_t n, int32_t *o, int32_t *s, const int32_t *ro,
                          const int32_t *rs);
SornVolume *sorn_arr_adjorgetRoi(const SornArray *a, SornVolume *roi, const SornVolume *in);
int sorn_arr__adjustRoi_$I(const SornArray *a, int32_t n, int32_t *o, int32_t *s);
SornVolume *sorn_arr_adjustRoi_$I(const SornArray *a, SornVolume *roi);
/* The same under the name some callers know it by. */
SornVolume *sorn_arr_adjustRoi_I(const SornArray *a, SornVolume *roi);
int sorn_arr__negotiateRoi(const SornArray *a, const SornArray *b, int32_t n, int32_t m, int32_t *oa,
                           int32_t *sa, int32_t *ob, int32_t *sb, const int32_t *ra_o,
                           const int32_t *ra_s, const int32_t *rb_at);
int sorn_arr_negotiateRoi(const SornArray *a, const SornArray *b, SornVolume *roiA,
                          SornVolume *roiB, const SornVolume *inA, const SornVolume *inB,
                          int32_t m);
int sorn_arr__negotiateRoiEx(const SornArray *a, const SornArray *b, int32_t n, int32_t m,
                             int32_t *oa, int32_t *sa, int32_t *ob, int32_t *sb, double *ratio,
                             const int32_t *ra_o, const int32_t *ra_s, const int32_t *rb_o,
                             const int32_t *rb_s);
int sorn_arr_negotiateRoiEx(const SornArray *a, const SornArray *b, SornVolume *roiA,
                            SornVolume *roiB, double *ratio, const SornVolume *inA,
                            const SornVolume *inB, int32_t m);
void *sorn_arr_topcs(const SornArray *a, int32_t n, int32_t *out, const int32_t *in);
void *sorn_arr_pt2pcs(const SornArray *a, int32_t *out, const int32_t *in);

/* Status stubs: stand in a kernel table or as a slice callback for a
 * combination that has nothing to run. They look at no argument. */
SornStatus sorna_proc_einval(void);
SornStatus sorna_proc_enotsup(void);
SornStatus sorna_proc_enotimp(void);

/* ---------------- The call frame ---------------- */

SornPack *sorna_genpackL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                         SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0);
SornPack *sorna_mappackL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                         SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                         int32_t *strides1);
SornPack *sorna_zippackL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                         SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                         int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                         int32_t *strides2);
SornPack *sorna_zip3packL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                          SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                          int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                          int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                          int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                          int32_t *strides2, uint32_t type3, void *base3, int32_t *origin3,
                          int32_t *strides3);
SornPack *sorna_zip4packL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                          SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                          int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                          int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                          int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                          int32_t *strides2, uint32_t type3, void *base3, int32_t *origin3,
                          int32_t *strides3, uint32_t type4, void *base4, int32_t *origin4,
                          int32_t *strides4);
SornStatus sorna_call(SornPack *pack);
SornStatus sorna__call(SornPack *pack, int32_t mode, SornSlice *slice);
/* Returns the new count of leading cells that are done with, or a negative
 * status. */
int32_t sorn_dims_xreduce(int32_t *dimsOut, int32_t **originsOut, int32_t **stridesOut,
                          int32_t skip, int32_t total, int32_t keep, int32_t count, int32_t tol,
                          const int32_t *dimsIn, int32_t *const *originsIn,
                          int32_t *const *stridesIn);
int32_t sorn_dims_xreduceI(int32_t *dims, int32_t **origins, int32_t **strides, int32_t skip,
                           int32_t total, int32_t keep, int32_t count, int32_t tol);

/* ---------------- Execution environment ---------------- */

extern int32_t _G_sorn_use_simd;
int32_t __sorn_use_simd(void);
int32_t sorn_level1_icache_size(void);
int32_t sorn_level1_dcache_size(void);
int32_t sorn_level2_cache_size(void);

SornXE *SornXEinit2(SornXE *xe, void *mmstack, uint64_t openarg);
SornXE *SornXEinit(SornXE *xe, void *mmstack);
SornXE *SornXEopen(SornXE *xe, void *mmstack, uint64_t openarg);
SornXE *SornXEfini(SornXE *xe);
void SornXEclose(SornXE *xe);
SornXE *SornXEclear(SornXE *xe);
SornXE *SornXEinitMmstack(SornXE *xe, uint64_t openarg);
SornXE *SornXEresetMmstack(SornXE *xe, void *mmstack, uint64_t openarg);
SornXE *SornXEdestroyMmstack(SornXE *xe);
void *SornXEmmstack(SornXE *xe);
KuMark *SornXEgetmmsp(SornXE *xe, KuMark *mark);
void SornXEsetmmsp(SornXE *xe, const KuMark *mark);
void *SornXEalloca(SornXE *xe, size_t size, size_t align);
void SornXEfreea(SornXE *xe, void *block);
int SornXEuseSimd(SornXE *xe, SornFlags flags);

void *sorn_mmstack_open(void *store, uint64_t arg);
void sorn_mmstack_close(void *stack);
void sorn_mmstack_destroy(void *stack);
void sorn_mmstack_reset(void *stack);
KuMark *sorn_mmstack_state(void *stack, KuMark *mark, uint64_t arg);
void sorn_mmstack_setstate(void *stack, const KuMark *mark);
void *sorn_mmstack_alloca(void *stack, size_t size, size_t align);
void sorn_mmstack_freea(void *stack, void *block);

/* ---------------- Library start and small services ---------------- */

int32_t __ku_crtaction(KuCrtAction *action);
void _t_ShlibInit(void);
void _t_ShlibFini(void);
int32_t ShlibInit(void);
int32_t ShlibFini(void);
extern int32_t _S_ku_crtaction_processed;

int sorn_sclu8rngchk(const double *cvec, int32_t chword);
uint32_t sorn_scfochk(const double *a, const double *b, int32_t n);

const char *sorn_cmpop_str(int32_t op);
const char *sorn_thhmethod_str(int32_t method);
const char *sorn_border_str(int32_t kind);
const char *sorn_filter_str(int32_t kind);
const char *sorn_morphop_str(int32_t kind);
SornStatus sorn_defillvals(SornElemType type, double *hi, double *lo, int32_t nchan);

/* ---------------- Value ranges ----------------
 * The span of values of one channel. An array of ranges has one record per
 * channel; the forms that take a channels word (_$cn, chword) loop over its
 * channel count (SORN_CHANNELS) and do nothing for a count of 0, and their
 * tests are then true. Pure functions: they return their output.
 *
 * The full range of a type: u8 0..255, s8 -128..127, u16 0..65535,
 * s16 -32768..32767, u32 0..4294967295, s32 -2^31..2^31-1,
 * f32 +-3.4028234663852886e38, any other code -inf..inf.
 *
 * Saturating (_$Q) brings a range into a type: integer types round lo down
 * and hi up through a 32-bit conversion (a value beyond 32 bits converts to
 * 0x80000000) and clamp, u32 to non-negative 32-bit values; f32 narrows to
 * f32; other codes leave the range alone.
 *
 * Normalizing repairs a range: a NaN lo gives 0..255 for u8, s16, s32 and
 * 0..1 for other types; an infinite lo or lo above hi gives the default
 * (one record per channel in the channel forms), or the type's full range
 * when there is none; a range that stands is saturated by the Q forms.
 *
 * Two values agree when their f32 forms differ by at most 1.1920929e-7. */
typedef struct SornVrng {
  double lo;
  double hi;
} SornVrng;

/* The record of a minimum and maximum search; ranges read the f32 value of
 * channel c's minimum at its 32-bit cell 2 + 6c and of its maximum at cell
 * 26 + 6c. */
struct SornMinmaxRec;

SornVrng *sorn_vrng_saturate(SornElemType type, SornVrng *out, const SornVrng *in);
SornVrng *sorn_vrng_saturate_$cn(SornElemType type, SornVrng *out, const SornVrng *in,
                                 int32_t chword);
SornVrng *__sorn_vrng__$minmax(SornVrng *out, const struct SornMinmaxRec *stats);
SornVrng *__sorn_vrng__$minmax$Q(SornElemType type, SornVrng *out,
                                 const struct SornMinmaxRec *stats);
SornVrng *__sorn_vrng__$cn$2(SornVrng *out, int32_t chword, double lo, double hi);
SornVrng *__sorn_vrng__$cn$2$Q(SornElemType type, SornVrng *out, int32_t chword, double lo,
                               double hi);
SornVrng *__sorn_vrng__$cn$minmax(SornVrng *out, int32_t chword,
                                  const struct SornMinmaxRec *stats);
SornVrng *__sorn_vrng__$cn$minmax$Q(SornElemType type, SornVrng *out, int32_t chword,
                                    const struct SornMinmaxRec *stats);

SornVrng *sorn_vrng_normalize_$I(SornElemType type, SornVrng *r, const SornVrng *def);
SornVrng *sorn_vrng_normalize_$IQ(SornElemType type, SornVrng *r, const SornVrng *def);
SornVrng *sorn_vrng_normalize_$cn$I(SornElemType type, SornVrng *r, const SornVrng *def,
                                    int32_t chword);
SornVrng *sorn_vrng_normalize_$cn$IQ(SornElemType type, SornVrng *r, const SornVrng *def,
                                     int32_t chword);
SornVrng *sorn_vrng_normalize_$cn(SornElemType type, SornVrng *out, const SornVrng *in,
                                  const SornVrng *def, int32_t chword);
SornVrng *sorn_vrng_normalize_$cn$Q(SornElemType type, SornVrng *out, const SornVrng *in,
                                    const SornVrng *def, int32_t chword);
/* As _$cn$Q; a null out does nothing. */
SornVrng *sorn_vrng_normalize_$cn$QS(SornElemType type, SornVrng *out, const SornVrng *in,
                                     const SornVrng *def, int32_t chword);

/* Channel c becomes bases[c] .. bases[c] + span(in[c]) * gains[c] (gain 1
 * and base 0 when the arrays are null). Ranges that leave the type move
 * back together while they fit, else the offending ends are rounded outward
 * and saturated. SORN_ENOTSUP for u64, s64, f64 and code 15; SORN_EINVAL
 * for other codes without a full range. */
SornStatus sorn_vrng_scale_$cn$Q(SornElemType type, SornVrng *out, const SornVrng *in,
                                 const double *gains, const double *bases, int32_t chword);
/* The map x * gain + bias that takes from onto to; a span of from within
 * 1.1920928955078125e-7 gives gain 1. */
void sorn_vrng_solve(double *gain, double *bias, const SornVrng *to, const SornVrng *from);
void sorn_vrng_solve_$cn(double *gains, double *biases, const SornVrng *to, const SornVrng *from,
                         int32_t chword);

/* Every channel takes the smallest lo and the largest hi (two channels or
 * more); the x forms look at normalized, saturated copies of the channels. */
SornVrng *sorn_vrng_equalize_$I(SornVrng *r, int32_t chword);
SornVrng *sorn_vrng_equalize(SornVrng *out, const SornVrng *in, int32_t chword);
SornVrng *sorn_vrng_xequalize_$I(SornElemType type, SornVrng *r, int32_t chword);
SornVrng *sorn_vrng_xequalize(SornElemType type, SornVrng *out, const SornVrng *in,
                              int32_t chword);

int sorn_vrng_equalized(const SornVrng *r, int32_t chword);
int sorn_vrng_equal_$cn(const SornVrng *a, const SornVrng *b, int32_t chword);
int sorn_vrng_xequal_$cn(SornElemType type, const SornVrng *a, const SornVrng *b, int32_t chword);
/* Both ends within 0 .. 2^(bits & 63) - 1 (unsigned) or -2^(bits-1) ..
 * 2^(bits-1) - 1 formed in 32 bits (signed); with bits above dbits also a
 * span |hi - lo| of at most 2^dbits - 1 (a negative dbits counts as 0). */
int sorn_vrng_uxchk_$cn(const SornVrng *r, int32_t chword, int32_t bits, int32_t dbits);
int sorn_vrng_sxchk_$cn(const SornVrng *r, int32_t chword, int32_t bits, int32_t dbits);
int sorn_vrng_diffuxchk_$cn(const SornVrng *r, int32_t chword, int32_t dbits);
/* Every span, rounded to an integer (negative as 0), is 0 or a power of two. */
int sorn_vrng_m2chk_$cn(const SornVrng *r, int32_t chword);

/* ======================================================================
 * Array arithmetic
 * ====================================================================== */

/* Kernels of the two-source families: rows of dims[n-3], cols dims[n-2]. */
typedef SornStatus (*SornArith2Kernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                       void *dst, const int32_t *dststrides, const void *a,
                                       const int32_t *astrides, const void *b,
                                       const int32_t *bstrides, int32_t sf, uint32_t extra);

/* Shared entry of the two-source families; tag selects the operation. */
SornStatus _T_SornArith2(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornVolume *dstRoi,
                         const SornVolume *aSite, const SornVolume *bSite, int32_t sf,
                         uint32_t extra);
/* Shared entry of the families with a constant vector (one f64 per channel). */
SornStatus _T_SornArith2c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const double *cvec, const SornVolume *dstRoi,
                          const SornVolume *aSite, int32_t sf, uint32_t extra);

/* Multiply-accumulate: dst = a + b * c ("mla "), a - b * c ("mls "),
 * b * c - a ("mlrs"); the C forms take c as one constant per channel, the
 * CC forms compute a * c1 + c2, a * c1 - c2 and its negation. Kernels are
 * named by destination, a, b and c; the combinations without one go through
 * scratch tiles of at most 10 rows. The reversed form has no kernels: it is
 * the difference negated in place, and refuses a u8 destination. */
#define SORN_TAG_MLA SORN_FOURCC('m', 'l', 'a', ' ')
#define SORN_TAG_MLS SORN_FOURCC('m', 'l', 's', ' ')
#define SORN_TAG_MLRS SORN_FOURCC('m', 'l', 'r', 's')
SornStatus _T_SornArith3(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornArray *c,
                         const SornVolume *dstRoi, const SornVolume *aSite,
                         const SornVolume *bSite, const SornVolume *cSite, int32_t sf,
                         uint32_t extra);
SornStatus _T_SornArith3c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const SornArray *b, const double *cvec,
                          const SornVolume *dstRoi, const SornVolume *aSite,
                          const SornVolume *bSite, int32_t sf, uint32_t extra);
SornStatus _T_SornArith3cc(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                           const SornArray *a, const double *c1vec, const double *c2vec,
                           const SornVolume *dstRoi, const SornVolume *aSite, int32_t sf,
                           uint32_t extra);
#define SORN_MAC_ENTRY_DECLS(name)                                                               \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,   \
                        const SornArray *b, const SornArray *c, const SornVolume *dstRoi,        \
                        const SornVolume *aSite, const SornVolume *bSite,                        \
                        const SornVolume *cSite, int32_t sf, uint32_t extra);                    \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                    \
                           const SornArray *a, const SornArray *b, const double *cvec,           \
                           const SornVolume *dstRoi, const SornVolume *aSite,                    \
                           const SornVolume *bSite, int32_t sf, uint32_t extra);                 \
  SornStatus Sorn##name##CC(SornXE *xe, SornFlags flags, const SornArray *dst,                   \
                            const SornArray *a, const double *c1vec, const double *c2vec,        \
                            const SornVolume *dstRoi, const SornVolume *aSite, int32_t sf,       \
                            uint32_t extra);
SORN_MAC_ENTRY_DECLS(MulAdd)
SORN_MAC_ENTRY_DECLS(MulSub)
SORN_MAC_ENTRY_DECLS(MulRSub)
#undef SORN_MAC_ENTRY_DECLS

/* Kernels of the three array sources: rows of dims[n-3], cols dims[n-2]. */
typedef SornStatus (*SornArith3Kernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                       void *dst, const int32_t *dststrides, const void *a,
                                       const int32_t *astrides, const void *b,
                                       const int32_t *bstrides, const void *c,
                                       const int32_t *cstrides, int32_t sf, uint32_t extra);
/* Kernels of the C forms: `block` a 64-byte fill vector of c's type, read
 * with a cycle of four values (three for three channels). */
typedef SornStatus (*SornArith3cKernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                        void *dst, const int32_t *dststrides, const void *a,
                                        const int32_t *astrides, const void *b,
                                        const int32_t *bstrides, const void *block, int32_t sf,
                                        uint32_t extra);
/* Kernels of the CC forms: the blocks of c1 and c2, of a's type. */
typedef SornStatus (*SornArith3ccKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                         const int32_t *dims, void *dst, const int32_t *dststrides,
                                         const void *a, const int32_t *astrides,
                                         const void *block1, const void *block2, int32_t sf,
                                         uint32_t extra);

/* The type tables: destination, a, b, c (the constant's type in the C
 * forms). The CC forms have a, c1 and c2 of one type. */
#define SORN_MLA_QUADS(X)                                                                     \
  X(u8, u8, u8, u8) X(u8, s16, s16, s16) X(u8, s32, u8, u8) X(u8, s32, s32, u8)             \
  X(u8, s32, s32, s16) X(u8, s32, s32, s32) X(u8, f32, s16, s16) X(u8, f32, s32, s32)       \
  X(u8, f32, f32, f32)                                                                      \
  X(s16, u8, u8, u8) X(s16, s16, s16, s16) X(s16, s32, u8, u8) X(s16, s32, s32, u8)         \
  X(s16, s32, s32, s16) X(s16, s32, s32, s32) X(s16, f32, s16, s16) X(s16, f32, s32, s32)   \
  X(s16, f32, f32, f32)                                                                     \
  X(s32, u8, u8, u8) X(s32, s16, s16, s16) X(s32, s32, u8, u8) X(s32, s32, s32, u8)         \
  X(s32, s32, s32, s16) X(s32, s32, s32, s32) X(s32, f32, s16, s16) X(s32, f32, s32, s32)   \
  X(s32, f32, f32, f32)                                                                     \
  X(f32, u8, u8, u8) X(f32, s16, s16, s16) X(f32, s32, s32, s32) X(f32, f32, u8, u8)        \
  X(f32, f32, s16, s16) X(f32, f32, s32, u8) X(f32, f32, s32, s16) X(f32, f32, s32, s32)    \
  X(f32, f32, f32, f32)
#define SORN_MLAC_QUADS(X)                                                                    \
  X(u8, u8, u8, u8) X(u8, s16, s16, s16) X(u8, s32, u8, u8) X(u8, s32, u8, s32)             \
  X(u8, s32, s16, s32) X(u8, s32, s32, s32) X(u8, f32, s16, s16) X(u8, f32, s32, s32)       \
  X(u8, f32, f32, f32)                                                                      \
  X(s16, u8, u8, u8) X(s16, u8, u8, f32) X(s16, s16, s16, s16) X(s16, s32, u8, u8)          \
  X(s16, s32, u8, s32) X(s16, s32, s16, s32) X(s16, s32, s32, s32) X(s16, f32, s16, s16)    \
  X(s16, f32, s32, s32) X(s16, f32, f32, f32)                                               \
  X(s32, u8, u8, u8) X(s32, s16, s16, s16) X(s32, s32, u8, u8) X(s32, s32, u8, s32)         \
  X(s32, s32, s16, s32) X(s32, s32, s32, s32) X(s32, f32, s16, s16) X(s32, f32, s32, s32)   \
  X(s32, f32, f32, f32)                                                                     \
  X(f32, u8, u8, u8) X(f32, s16, s16, s16) X(f32, s32, s32, s32) X(f32, f32, u8, u8)        \
  X(f32, f32, u8, s32) X(f32, f32, s16, s16) X(f32, f32, s16, s32) X(f32, f32, s32, s32)    \
  X(f32, f32, f32, f32)
#define SORN_MLACC_TYPES(X) X(u8) X(s16) X(s32) X(f32)
#define SORN_MLACC_DSTS(X, t) X(u8, t) X(s16, t) X(s32, t) X(f32, t)

#define SORN_MAC_KERNEL_DECL(fam, d, a, b, c)                                                   \
  SornStatus sorna__##fam##_c1_##d##a##b##c(SornXE *xe, SornFlags flags, int32_t n,           \
                                            const int32_t *dims, void *dst,                   \
                                            const int32_t *dststrides, const void *pa,        \
                                            const int32_t *astrides, const void *pb,          \
                                            const int32_t *bstrides, const void *pc,          \
                                            const int32_t *cstrides, int32_t sf, uint32_t extra);
#define SORN_MACC_KERNEL_DECL(fam, d, a, b, t)                                                  \
  SornStatus sorna__##fam##C_c1_##d##a##b##t(SornXE *xe, SornFlags flags, int32_t n,          \
                                             const int32_t *dims, void *dst,                  \
                                             const int32_t *dststrides, const void *pa,       \
                                             const int32_t *astrides, const void *pb,         \
                                             const int32_t *bstrides, const void *block,      \
                                             int32_t sf, uint32_t extra);
#define SORN_MACCC_KERNEL_DECL(fam, d, t)                                                       \
  SornStatus sorna__##fam##CC_c1_##d##t##t##t(SornXE *xe, SornFlags flags, int32_t n,         \
                                              const int32_t *dims, void *dst,                 \
                                              const int32_t *dststrides, const void *pa,      \
                                              const int32_t *astrides, const void *block1,    \
                                              const void *block2, int32_t sf, uint32_t extra);
#define SORN_DECL_MLA(d, a, b, c) SORN_MAC_KERNEL_DECL(mla, d, a, b, c)
#define SORN_DECL_MLS(d, a, b, c) SORN_MAC_KERNEL_DECL(mls, d, a, b, c)
#define SORN_DECL_MLAC(d, a, b, t) SORN_MACC_KERNEL_DECL(mla, d, a, b, t)
#define SORN_DECL_MLSC(d, a, b, t) SORN_MACC_KERNEL_DECL(mls, d, a, b, t)
#define SORN_DECL_MLACC(d, t) SORN_MACCC_KERNEL_DECL(mla, d, t)
#define SORN_DECL_MLSCC(d, t) SORN_MACCC_KERNEL_DECL(mls, d, t)
#define SORN_DECL_MLACC_ALL(t) SORN_MLACC_DSTS(SORN_DECL_MLACC, t)
#define SORN_DECL_MLSCC_ALL(t) SORN_MLACC_DSTS(SORN_DECL_MLSCC, t)
SORN_MLA_QUADS(SORN_DECL_MLA)
SORN_MLA_QUADS(SORN_DECL_MLS)
SORN_MLAC_QUADS(SORN_DECL_MLAC)
SORN_MLAC_QUADS(SORN_DECL_MLSC)
SORN_MLACC_TYPES(SORN_DECL_MLACC_ALL)
SORN_MLACC_TYPES(SORN_DECL_MLSCC_ALL)
#undef SORN_DECL_MLA
#undef SORN_DECL_MLS
#undef SORN_DECL_MLAC
#undef SORN_DECL_MLSC
#undef SORN_DECL_MLACC
#undef SORN_DECL_MLSCC
#undef SORN_DECL_MLACC_ALL
#undef SORN_DECL_MLSCC_ALL
#undef SORN_MAC_KERNEL_DECL
#undef SORN_MACC_KERNEL_DECL
#undef SORN_MACCC_KERNEL_DECL

/* Lookups: key dsttype << 12 | atype << 8 | btype << 4 | ctype. A missing
 * key gives sorna_proc_enotsup for known codes, sorna_proc_einval
 * otherwise, with the status in *status when status is not null. */
#define SORN_MAC_LOOKUP_DECL(name, K)                                                          \
  K name(uint32_t dsttype, uint32_t atype, uint32_t btype, uint32_t ctype, SornStatus *status);
SORN_MAC_LOOKUP_DECL(sorna__amlafun_imp, SornArith3Kernel)
SORN_MAC_LOOKUP_DECL(sorna__amlsfun_imp, SornArith3Kernel)
SORN_MAC_LOOKUP_DECL(sorna__amlacfun_imp, SornArith3cKernel)
SORN_MAC_LOOKUP_DECL(sorna__amlscfun_imp, SornArith3cKernel)
SORN_MAC_LOOKUP_DECL(sorna__amlaccfun_imp, SornArith3ccKernel)
SORN_MAC_LOOKUP_DECL(sorna__amlsccfun_imp, SornArith3ccKernel)
#undef SORN_MAC_LOOKUP_DECL

/* The class of a vector of constants, one per channel: the narrowest type
 * that holds them all, as the C forms of the two-source families classify
 * (27 is an integer beyond the mantissa of an f32). */
uint32_t _T_sorna__get_elemtype_cn(SornFlags flags, const double *cvec, int32_t channels);

/* Layer 2 and the dispatchers, of three arrays, of two arrays and
 * constants (C), of one array and two constant vectors (CC). */
#define SORN_MAC_LAYERS_DECL(op)                                                               \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,   \
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,             \
                        const int32_t *dststrides, uint32_t atype, const void *abase,          \
                        const int32_t *aorigin, const int32_t *astrides, uint32_t btype,       \
                        const void *bbase, const int32_t *borigin, const int32_t *bstrides,    \
                        uint32_t ctype, const void *cbase, const int32_t *corigin,             \
                        const int32_t *cstrides, int32_t sf, uint32_t extra);                  \
  SornStatus sorna_##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                           uint32_t dsttype, void *dstbase, const int32_t *dstorigin,          \
                           const int32_t *dststrides, uint32_t atype, const void *abase,       \
                           const int32_t *aorigin, const int32_t *astrides, uint32_t btype,    \
                           const void *bbase, const int32_t *borigin,                          \
                           const int32_t *bstrides, const double *cvec, int32_t sf,            \
                           uint32_t extra);                                                    \
  SornStatus sorna_##op##CC(SornXE *xe, SornFlags flags, SornDimPack pack,                     \
                            const int32_t *dims, uint32_t dsttype, void *dstbase,              \
                            const int32_t *dstorigin, const int32_t *dststrides,               \
                            uint32_t atype, const void *abase, const int32_t *aorigin,         \
                            const int32_t *astrides, const double *c1vec,                      \
                            const double *c2vec, int32_t sf, uint32_t extra);                  \
  SornStatus sorna__##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,  \
                         uint32_t dsttype, void *dst, const int32_t *dststrides,              \
                         uint32_t atype, const void *a, const int32_t *astrides,              \
                         uint32_t btype, const void *b, const int32_t *bstrides,              \
                         uint32_t ctype, const void *c, const int32_t *cstrides, int32_t sf,  \
                         uint32_t extra);                                                     \
  SornStatus sorna__##op##C(SornXE *xe, SornFlags flags, SornDimPack pack,                     \
                            const int32_t *dims, uint32_t dsttype, void *dst,                  \
                            const int32_t *dststrides, uint32_t atype, const void *a,          \
                            const int32_t *astrides, uint32_t btype, const void *b,            \
                            const int32_t *bstrides, const double *cvec, int32_t sf,           \
                            uint32_t extra);                                                   \
  SornStatus sorna__##op##CC(SornXE *xe, SornFlags flags, SornDimPack pack,                    \
                             const int32_t *dims, uint32_t dsttype, void *dst,                 \
                             const int32_t *dststrides, uint32_t atype, const void *a,         \
                             const int32_t *astrides, const double *c1vec,                     \
                             const double *c2vec, int32_t sf, uint32_t extra);
SORN_MAC_LAYERS_DECL(mla)
SORN_MAC_LAYERS_DECL(mls)
SORN_MAC_LAYERS_DECL(mlrs)
#undef SORN_MAC_LAYERS_DECL

/* The ways through tiles of the array form (dims and strides folded, as the
 * kernels take them), for the sum (tag "mla ") or the difference ("mls "):
 * a converted to T before the kernel of (dsttype, T, btype, ctype); the
 * product formed by the multiplication in a tile of T at sf 0 and then
 * added to (taken from) a by the saturating form with sf and extra. */
SornStatus _T_sorna__mla_convert_src1(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                      int32_t n, const int32_t *dims, uint32_t dsttype, void *dst,
                                      const int32_t *dststrides, uint32_t atype, const void *a,
                                      const int32_t *astrides, uint32_t btype, const void *b,
                                      const int32_t *bstrides, uint32_t ctype, const void *c,
                                      const int32_t *cstrides, int32_t sf, uint32_t extra);
SornStatus _T_sorna__mla_call_xmuladdq(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                       int32_t n, const int32_t *dims, uint32_t dsttype,
                                       void *dst, const int32_t *dststrides, uint32_t atype,
                                       const void *a, const int32_t *astrides, uint32_t btype,
                                       const void *b, const int32_t *bstrides, uint32_t ctype,
                                       const void *c, const int32_t *cstrides, int32_t sf,
                                       uint32_t extra);
/* The same for the C forms (dims unfolded, the constants in cvec): a
 * converted to T; the result formed in a tile of T and converted into dst;
 * the product by the constant multiplication, then the saturating sum. */
SornStatus _T_sorna__mlaC_convert_src1(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                       int32_t n, const int32_t *dims, uint32_t dsttype,
                                       void *dst, const int32_t *dststrides, uint32_t atype,
                                       const void *a, const int32_t *astrides, uint32_t btype,
                                       const void *b, const int32_t *bstrides,
                                       const double *cvec, int32_t sf, uint32_t extra);
SornStatus _T_sorna__mlaC_convert_dst(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                      int32_t n, const int32_t *dims, uint32_t dsttype, void *dst,
                                      const int32_t *dststrides, uint32_t atype, const void *a,
                                      const int32_t *astrides, uint32_t btype, const void *b,
                                      const int32_t *bstrides, const double *cvec, int32_t sf,
                                      uint32_t extra);
SornStatus _T_sorna__mlaC_call_xmulCaddq(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                         int32_t n, const int32_t *dims, uint32_t dsttype,
                                         void *dst, const int32_t *dststrides, uint32_t atype,
                                         const void *a, const int32_t *astrides, uint32_t btype,
                                         const void *b, const int32_t *bstrides,
                                         const double *cvec, int32_t sf, uint32_t extra);

SornStatus SornAdd(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,
                   const SornArray *b, const SornVolume *dstRoi, const SornVolume *aSite,
                   const SornVolume *bSite, int32_t sf, uint32_t extra);
SornStatus SornAddC(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,
                    const double *cvec, const SornVolume *dstRoi, const SornVolume *aSite,
                    int32_t sf, uint32_t extra);

SornStatus sorna_add(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                     const int32_t *dststrides, uint32_t atype, const void *abase,
                     const int32_t *aorigin, const int32_t *astrides, uint32_t btype,
                     const void *bbase, const int32_t *borigin, const int32_t *bstrides,
                     int32_t sf, uint32_t extra);
SornStatus sorna__add(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, uint32_t btype,
                      const void *bptr, const int32_t *bstrides, int32_t sf, uint32_t extra);
SornArith2Kernel sorna__aaddfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);

/* The type table of the add kernels: destination, first source, second
 * source. It is the one list from which the kernels, their lookup, the tests
 * and the benchmarks are all expanded. */
#define SORN_ADD_TRIPLES(X)                                                                   \
  X(u8, u8, u8) X(u8, s16, u8) X(u8, s16, s16)                                              \
  X(s16, u8, u8) X(s16, s16, u8) X(s16, s16, s16)                                           \
  X(s32, u8, u8) X(s32, s16, u8) X(s32, s16, s16) X(s32, s32, u8) X(s32, s32, s16)          \
  X(s32, s32, s32) X(s32, f32, u8) X(s32, f32, s16) X(s32, f32, s32) X(s32, f32, f32)       \
  X(f32, u8, u8) X(f32, s16, u8) X(f32, s16, s16) X(f32, s32, u8) X(f32, s32, s16)          \
  X(f32, s32, s32) X(f32, f32, u8) X(f32, f32, s16) X(f32, f32, s32) X(f32, f32, f32)

/* The add kernels, sorna__add_c1_<dst><a><b>. */
#define SORN_ADD_KERNEL_DECL(d, a, b)                                                        \
  SornStatus sorna__add_c1_##d##a##b(SornXE *xe, SornFlags flags, int32_t n,               \
                                     const int32_t *dims, void *dst,                       \
                                     const int32_t *dststrides, const void *pa,            \
                                     const int32_t *astrides, const void *pb,              \
                                     const int32_t *bstrides, int32_t sf, uint32_t extra);
SORN_ADD_TRIPLES(SORN_ADD_KERNEL_DECL)
#undef SORN_ADD_KERNEL_DECL

/* ---------------- Add and subtract families ----------------
 * Subtraction in both orders, the saturating forms q, the signed saturating
 * forms sq (the destination's type code taken with bit 3 set, so that a u8
 * destination is written as s8), and the forms C with one f64 constant per
 * channel. */

/* Constant classification of the C forms: either bit lets an f32 constant
 * win over big integers, which then count as s32. */
#define SORN_F_CONST_CLASS   0x600000ull
/* f32 constants on f32 sources widen to f64 for 4-byte destinations. */
#define SORN_F_CONST_WIDE    0x100000ull

/* Kernels of the C forms: `block` is a 64-byte fill vector of the constant
 * type, read with a cycle of four values (three for three channels). */
typedef SornStatus (*SornArith2cKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                        const int32_t *dims, void *dst,
                                        const int32_t *dststrides, const void *a,
                                        const int32_t *astrides, const void *block, int32_t sf,
                                        uint32_t extra);

#define SORN_ARITH2_ENTRY_DECL(name)                                                          \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a, \
                        const SornArray *b, const SornVolume *dstRoi, const SornVolume *aSite, \
                        const SornVolume *bSite, int32_t sf, uint32_t extra);                  \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                  \
                           const SornArray *a, const double *cvec, const SornVolume *dstRoi,  \
                           const SornVolume *aSite, int32_t sf, uint32_t extra);
SORN_ARITH2_ENTRY_DECL(Addq)
SORN_ARITH2_ENTRY_DECL(Addsq)
SORN_ARITH2_ENTRY_DECL(Sub)
SORN_ARITH2_ENTRY_DECL(Subq)
SORN_ARITH2_ENTRY_DECL(Subsq)
SORN_ARITH2_ENTRY_DECL(RSub)
SORN_ARITH2_ENTRY_DECL(RSubq)
SORN_ARITH2_ENTRY_DECL(RSubsq)

/* Layer 2 (origins to base pointers) and layer 3 (the dispatchers). */
#define SORN_ARITH2_LAYER2_DECL(op)                                                           \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,  \
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,            \
                        const int32_t *dststrides, uint32_t atype, const void *abase,         \
                        const int32_t *aorigin, const int32_t *astrides, uint32_t btype,      \
                        const void *bbase, const int32_t *borigin, const int32_t *bstrides,   \
                        int32_t sf, uint32_t extra);                                          \
  SornStatus sorna_##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                           uint32_t dsttype, void *dstbase, const int32_t *dstorigin,         \
                           const int32_t *dststrides, uint32_t atype, const void *abase,      \
                           const int32_t *aorigin, const int32_t *astrides,                   \
                           const double *cvec, int32_t sf, uint32_t extra);
SORN_ARITH2_LAYER2_DECL(addq)
SORN_ARITH2_LAYER2_DECL(addsq)
SORN_ARITH2_LAYER2_DECL(sub)
SORN_ARITH2_LAYER2_DECL(subq)
SORN_ARITH2_LAYER2_DECL(subsq)
SORN_ARITH2_LAYER2_DECL(rsub)
SORN_ARITH2_LAYER2_DECL(rsubq)
SORN_ARITH2_LAYER2_DECL(rsubsq)
SornStatus sorna_addC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                      const int32_t *dststrides, uint32_t atype, const void *abase,
                      const int32_t *aorigin, const int32_t *astrides, const double *cvec,
                      int32_t sf, uint32_t extra);

#define SORN_ARITH2_DISPATCH_DECL(op)                                                         \
  SornStatus sorna__##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                         uint32_t dsttype, void *dstptr, const int32_t *dststrides,          \
                         uint32_t atype, const void *aptr, const int32_t *astrides,          \
                         uint32_t btype, const void *bptr, const int32_t *bstrides,          \
                         int32_t sf, uint32_t extra);                                        \
  SornStatus sorna__##op##C(SornXE *xe, SornFlags flags, SornDimPack pack,                   \
                            const int32_t *dims, uint32_t dsttype, void *dstptr,             \
                            const int32_t *dststrides, uint32_t atype, const void *aptr,     \
                            const int32_t *astrides, const double *cvec, int32_t sf,         \
                            uint32_t extra);
SORN_ARITH2_DISPATCH_DECL(addq)
SORN_ARITH2_DISPATCH_DECL(sub)
SORN_ARITH2_DISPATCH_DECL(subq)
SORN_ARITH2_DISPATCH_DECL(rsub)
SORN_ARITH2_DISPATCH_DECL(rsubq)
SornStatus sorna__addC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,
                       uint32_t extra);

/* Lookups: key dsttype << 8 | atype << 4 | btype (or the constant's type T).
 * A missing key gives sorna_proc_enotsup for known codes, sorna_proc_einval
 * otherwise, with the status in *status when status is not null. */
SornArith2Kernel sorna__asubfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);
SornArith2Kernel sorna__arsubfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                     SornStatus *status);
SornArith2Kernel sorna__aaddqfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                     SornStatus *status);
SornArith2Kernel sorna__asubqfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                     SornStatus *status);
SornArith2Kernel sorna__arsubqfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                      SornStatus *status);
SornArith2cKernel sorna__aaddcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                      SornStatus *status);
SornArith2cKernel sorna__asubcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                      SornStatus *status);
SornArith2cKernel sorna__arsubcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                       SornStatus *status);
SornArith2cKernel sorna__aaddqcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                       SornStatus *status);
SornArith2cKernel sorna__asubqcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                       SornStatus *status);
SornArith2cKernel sorna__arsubqcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                        SornStatus *status);

/* The type tables of this group, written once. The plain subtraction
 * families have the triples of SORN_ADD_TRIPLES. */
/* Saturating kernels of their own (the other keys of the q lookups name the
 * family's plain kernels: no overflow is possible there, or a float source
 * is involved). */
#define SORN_ADDQ_OWN_TRIPLES(X)                                                              \
  X(s8, u8, u8) X(u8, u8, u8) X(u8, s16, u8) X(u8, s16, s16) X(s16, s16, u8)                \
  X(s16, s16, s16) X(s32, s32, u8) X(s32, s32, s16) X(s32, s32, s32) X(f32, s32, u8)        \
  X(f32, s32, s16) X(f32, s32, s32)
#define SORN_ADDQ_PLAIN_TRIPLES(X)                                                            \
  X(s16, u8, u8) X(s32, u8, u8) X(s32, s16, u8) X(s32, s16, s16) X(s32, f32, u8)            \
  X(s32, f32, s16) X(s32, f32, s32) X(s32, f32, f32) X(f32, u8, u8) X(f32, s16, u8)         \
  X(f32, s16, s16) X(f32, f32, u8) X(f32, f32, s16) X(f32, f32, s32) X(f32, f32, f32)
/* The C forms: destination, source, constant type. */
#define SORN_ADDC_TRIPLES(X)                                                                  \
  X(u8, u8, u8) X(u8, u8, s32) X(u8, s16, s16) X(s16, u8, u8) X(s16, u8, s32)               \
  X(s16, s16, s16) X(s32, u8, u8) X(s32, u8, s32) X(s32, s16, s16) X(s32, s16, s32)         \
  X(s32, s32, s32) X(s32, f32, f32) X(s32, f32, f64) X(f32, u8, u8) X(f32, u8, s32)         \
  X(f32, s16, s16) X(f32, s16, s32) X(f32, s32, s32) X(f32, s32, f64) X(f32, f32, f32)      \
  X(f32, f32, f64)
#define SORN_ADDQC_OWN_TRIPLES(X)                                                             \
  X(s8, u8, u8) X(u8, s16, s16) X(u8, u8, s32) X(u8, u8, u8) X(s16, s16, s16)               \
  X(s16, u8, s32) X(s32, s32, s32) X(s32, s16, s32) X(s32, u8, s32) X(f32, s32, s32)        \
  X(f32, s16, s32) X(f32, u8, s32)
#define SORN_ADDQC_PLAIN_TRIPLES(X)                                                           \
  X(s16, u8, u8) X(s32, u8, u8) X(s32, s16, s16) X(s32, f32, f32) X(s32, f32, f64)          \
  X(f32, u8, u8) X(f32, s16, s16) X(f32, s32, f64) X(f32, f32, f32) X(f32, f32, f64)

/* Kernel names: sorna__<family>_c1_<dst><a><b>, sorna__<family>C_c1_<dst><a><T>. */
#define SORN_ARITH2_KERNEL_DECL(fam, d, a, b)                                                 \
  SornStatus sorna__##fam##_c1_##d##a##b(SornXE *xe, SornFlags flags, int32_t n,           \
                                         const int32_t *dims, void *dst,                   \
                                         const int32_t *dststrides, const void *pa,        \
                                         const int32_t *astrides, const void *pb,          \
                                         const int32_t *bstrides, int32_t sf, uint32_t extra);
#define SORN_ARITH2C_KERNEL_DECL(fam, d, a, t)                                                \
  SornStatus sorna__##fam##C_c1_##d##a##t(SornXE *xe, SornFlags flags, int32_t n,          \
                                          const int32_t *dims, void *dst,                  \
                                          const int32_t *dststrides, const void *pa,       \
                                          const int32_t *astrides, const void *block,      \
                                          int32_t sf, uint32_t extra);
#define SORN_DECL_SUB(d, a, b) SORN_ARITH2_KERNEL_DECL(sub, d, a, b)
#define SORN_DECL_RSUB(d, a, b) SORN_ARITH2_KERNEL_DECL(rsub, d, a, b)
#define SORN_DECL_ADDQ(d, a, b) SORN_ARITH2_KERNEL_DECL(addq, d, a, b)
#define SORN_DECL_SUBQ(d, a, b) SORN_ARITH2_KERNEL_DECL(subq, d, a, b)
#define SORN_DECL_RSUBQ(d, a, b) SORN_ARITH2_KERNEL_DECL(rsubq, d, a, b)
#define SORN_DECL_ADDC(d, a, t) SORN_ARITH2C_KERNEL_DECL(add, d, a, t)
#define SORN_DECL_SUBC(d, a, t) SORN_ARITH2C_KERNEL_DECL(sub, d, a, t)
#define SORN_DECL_RSUBC(d, a, t) SORN_ARITH2C_KERNEL_DECL(rsub, d, a, t)
#define SORN_DECL_ADDQC(d, a, t) SORN_ARITH2C_KERNEL_DECL(addq, d, a, t)
#define SORN_DECL_SUBQC(d, a, t) SORN_ARITH2C_KERNEL_DECL(subq, d, a, t)
#define SORN_DECL_RSUBQC(d, a, t) SORN_ARITH2C_KERNEL_DECL(rsubq, d, a, t)
SORN_ADD_TRIPLES(SORN_DECL_SUB)
SORN_ADD_TRIPLES(SORN_DECL_RSUB)
SORN_ADDQ_OWN_TRIPLES(SORN_DECL_ADDQ)
SORN_ADDQ_OWN_TRIPLES(SORN_DECL_SUBQ)
SORN_ADDQ_OWN_TRIPLES(SORN_DECL_RSUBQ)
SORN_ADDC_TRIPLES(SORN_DECL_ADDC)
SORN_ADDC_TRIPLES(SORN_DECL_SUBC)
SORN_ADDC_TRIPLES(SORN_DECL_RSUBC)
SORN_ADDQC_OWN_TRIPLES(SORN_DECL_ADDQC)
SORN_ADDQC_OWN_TRIPLES(SORN_DECL_SUBQC)
SORN_ADDQC_OWN_TRIPLES(SORN_DECL_RSUBQC)
#undef SORN_DECL_SUB
#undef SORN_DECL_RSUB
#undef SORN_DECL_ADDQ
#undef SORN_DECL_SUBQ
#undef SORN_DECL_RSUBQ
#undef SORN_DECL_ADDC
#undef SORN_DECL_SUBC
#undef SORN_DECL_RSUBC
#undef SORN_DECL_ADDQC
#undef SORN_DECL_SUBQC
#undef SORN_DECL_RSUBQC

/* ---------------- Unary functions ----------------
 * Negation, saturating negation, the square (kernels only: the
 * multiplications call them for like sources), the exponential, the natural
 * logarithm and the sigmoid with a slope. The exponential and the logarithm
 * take f32 to f32 only. */

/* Accuracy of exp and ln, in this order of precedence: accurate (the
 * default), fast (exp only), superfast. */
#define SORN_F_EXP_ACCURATE  0x100000ull
#define SORN_F_EXP_FAST      0x200000ull
#define SORN_F_EXP_SUPERFAST 0x400000ull

/* Kernels of one source: rows of dims[n-3], cols dims[n-2]. */
typedef SornStatus (*SornArith1Kernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                       void *dst, const int32_t *dststrides, const void *a,
                                       const int32_t *astrides, int32_t sf, uint32_t extra);

/* Shared entry of the one-source operations; tag selects the operation. */
SornStatus _T_SornArith(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                        const SornArray *a, const SornVolume *dstRoi, const SornVolume *aSite,
                        int32_t sf, uint32_t extra);

#define SORN_ARITH1_ENTRY_DECL(name)                                                          \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a, \
                        const SornVolume *dstRoi, const SornVolume *aSite, int32_t sf,          \
                        uint32_t extra);
SORN_ARITH1_ENTRY_DECL(Negate)
SORN_ARITH1_ENTRY_DECL(Negateq)
SORN_ARITH1_ENTRY_DECL(Exp)
SORN_ARITH1_ENTRY_DECL(Ln)
/* dst = 1 / (E(alpha * a) + 1) with alpha the slope of the channel (one
 * f64 per channel, all equal for more than one channel): a positive slope
 * gives a falling curve. */
SornStatus SornSigmoidAlpha(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,
                            const double *cvec, const SornVolume *dstRoi, const SornVolume *aSite,
                            int32_t sf, uint32_t extra);

#define SORN_ARITH1_LAYER2_DECL(op)                                                           \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,  \
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,            \
                        const int32_t *dststrides, uint32_t atype, const void *abase,         \
                        const int32_t *aorigin, const int32_t *astrides, int32_t sf,          \
                        uint32_t extra);
#define SORN_ARITH1_DISPATCH_DECL(op)                                                         \
  SornStatus sorna__##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                         uint32_t dsttype, void *dstptr, const int32_t *dststrides,          \
                         uint32_t atype, const void *aptr, const int32_t *astrides,          \
                         int32_t sf, uint32_t extra);
SORN_ARITH1_LAYER2_DECL(neg)
SORN_ARITH1_LAYER2_DECL(negq)
SORN_ARITH1_LAYER2_DECL(exp)
SORN_ARITH1_LAYER2_DECL(ln)
SORN_ARITH1_DISPATCH_DECL(neg)
SORN_ARITH1_DISPATCH_DECL(negq)
SORN_ARITH1_DISPATCH_DECL(exp)
SORN_ARITH1_DISPATCH_DECL(ln)
/* The sigmoid with a slope of 1 and of -1, on the way of the sigmoid. */
SORN_ARITH1_DISPATCH_DECL(sigmoid1)
SORN_ARITH1_DISPATCH_DECL(sigmoid_1)
#undef SORN_ARITH1_ENTRY_DECL
#undef SORN_ARITH1_LAYER2_DECL
#undef SORN_ARITH1_DISPATCH_DECL
SornStatus sorna_sigmoidalpha(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                              uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                              const int32_t *dststrides, uint32_t atype, const void *abase,
                              const int32_t *aorigin, const int32_t *astrides,
                              const double *cvec, int32_t sf, uint32_t extra);
SornStatus sorna__sigmoidalpha(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                               uint32_t dsttype, void *dstptr, const int32_t *dststrides,
                               uint32_t atype, const void *aptr, const int32_t *astrides,
                               const double *cvec, int32_t sf, uint32_t extra);

/* Lookups: key dsttype << 4 | atype. */
SornArith1Kernel sorna__anegfun_imp(uint32_t dsttype, uint32_t atype, SornStatus *status);
SornArith1Kernel sorna__anegqfun_imp(uint32_t dsttype, uint32_t atype, SornStatus *status);

/* The type tables of the one-source kernels: destination, source. */
#define SORN_NEG_PAIRS(X)                                                                    \
  X(u8, u8) X(u8, s16) X(u8, s32) X(u8, f32) X(s16, u8) X(s16, s16) X(s16, s32) X(s16, f32)  \
  X(s32, u8) X(s32, s16) X(s32, s32) X(s32, f32) X(f32, u8) X(f32, s16) X(f32, s32)          \
  X(f32, f32)
/* Saturating negations of their own; the other keys of the negq lookup name
 * the plain kernels. */
#define SORN_NEGQ_OWN_PAIRS(X) \
  X(u8, s16) X(u8, s32) X(u8, f32) X(s16, s16) X(s16, s32) X(s16, f32) X(s32, s32)
#define SORN_NEGQ_PLAIN_PAIRS(X) \
  X(s16, u8) X(s32, u8) X(s32, s16) X(s32, f32) X(f32, u8) X(f32, s16) X(f32, s32) X(f32, f32)
#define SORN_SQR_PAIRS(X)                                                                    \
  X(u8, u8) X(u8, s16) X(s16, u8) X(s16, s16) X(s32, u8) X(s32, s16) X(s32, s32) X(s32, f32) \
  X(f32, u8) X(f32, s16) X(f32, s32) X(f32, f32)

#define SORN_ARITH1_KERNEL_DECL(fam, d, a)                                                    \
  SornStatus sorna__##fam##_c1_##d##a(SornXE *xe, SornFlags flags, int32_t n,               \
                                      const int32_t *dims, void *dst,                       \
                                      const int32_t *dststrides, const void *pa,            \
                                      const int32_t *astrides, int32_t sf, uint32_t extra);
#define SORN_DECL_NEG(d, a) SORN_ARITH1_KERNEL_DECL(neg, d, a)
#define SORN_DECL_NEGQ(d, a) SORN_ARITH1_KERNEL_DECL(negq, d, a)
#define SORN_DECL_SQR(d, a) SORN_ARITH1_KERNEL_DECL(sqr, d, a)
SORN_NEG_PAIRS(SORN_DECL_NEG)
SORN_NEGQ_OWN_PAIRS(SORN_DECL_NEGQ)
SORN_SQR_PAIRS(SORN_DECL_SQR)
#undef SORN_DECL_NEG
#undef SORN_DECL_NEGQ
#undef SORN_DECL_SQR
#undef SORN_ARITH1_KERNEL_DECL

/* The one pair of types exp, ln and the sigmoid take: destination, source. */
#define SORN_EXP_PAIRS(X) X(f32, f32)

/* The element functions of exp and ln, by accuracy. */
float _T_sorna__exp_fast_acc(float x);
float _T_sorna__exp_fast(float x);
float _T_sorna__exp_superfast(float x);
float _T_sorna__ln_fast_acc(float x);
float _T_sorna__ln_superfast(float x);

/* ---------------- Multiplication and division ----------------
 * Products clamp at every scale factor, also at 0, where a sum would wrap.
 * Quotients are truncated (div) or rounded (divr); the R forms divide the
 * second operand, or the constant, by the first. An integer division by a
 * zero divisor is not checked, and what it gives is not promised. */
SORN_ARITH2_ENTRY_DECL(Mul)
SORN_ARITH2_ENTRY_DECL(Div)
SORN_ARITH2_ENTRY_DECL(Divr)
SORN_ARITH2_ENTRY_DECL(RDiv)
SORN_ARITH2_ENTRY_DECL(RDivr)
SORN_ARITH2_LAYER2_DECL(mul)
SORN_ARITH2_LAYER2_DECL(div)
SORN_ARITH2_LAYER2_DECL(divr)
SORN_ARITH2_LAYER2_DECL(rdiv)
SORN_ARITH2_LAYER2_DECL(rdivr)
SORN_ARITH2_DISPATCH_DECL(mul)
SORN_ARITH2_DISPATCH_DECL(div)
SORN_ARITH2_DISPATCH_DECL(divr)
SORN_ARITH2_DISPATCH_DECL(rdiv)
SORN_ARITH2_DISPATCH_DECL(rdivr)

/* Kernels of the constant divisions: the constants stay f64 in cvec, one
 * per channel; the last word is 0. */
typedef SornStatus (*SornDivCKernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                     void *dst, const int32_t *dststrides, const void *a,
                                     const int32_t *astrides, const double *cvec, int32_t sf,
                                     uint32_t extra, int32_t zero);

SornArith2Kernel sorna__amulfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);
SornArith2cKernel sorna__amulcfun_imp(uint32_t dsttype, uint32_t atype, uint32_t ctype,
                                      SornStatus *status);
SornArith2Kernel sorna__adivfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);
SornArith2Kernel sorna__adivrfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                     SornStatus *status);
/* Keyed by types and the channel count (the last dims cell, & 15): 1, 3
 * and 4 have kernels, any other count is invalid. */
SornDivCKernel sorna__adivcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                   SornStatus *status);
SornDivCKernel sorna__adivrcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                    SornStatus *status);
SornDivCKernel sorna__ardivcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                    SornStatus *status);
SornDivCKernel sorna__ardivrcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                     SornStatus *status);

/* The type tables of the group. The multiplications of two arrays have the
 * triples of SORN_ADD_TRIPLES. */
#define SORN_MUL_TRIPLES(X) SORN_ADD_TRIPLES(X)
/* By a constant: destination, source, constant type. */
#define SORN_MULC_TRIPLES(X)                                                                  \
  X(u8, u8, u8) X(u8, u8, s32) X(u8, u8, f32) X(u8, s16, s16) X(s8, u8, u8) X(s16, u8, u8)    \
  X(s16, u8, s32) X(s16, s16, s16) X(s32, u8, u8) X(s32, u8, s32) X(s32, u8, f32)             \
  X(s32, u8, f64) X(s32, s16, s16) X(s32, s16, s32) X(s32, s16, f32) X(s32, s16, f64)         \
  X(s32, s32, s32) X(s32, s32, f32) X(s32, s32, f64) X(s32, f32, f32) X(s32, f32, f64)        \
  X(f32, u8, u8) X(f32, u8, s32) X(f32, u8, f32) X(f32, s16, s16) X(f32, s16, s32)            \
  X(f32, s16, f32) X(f32, s32, s32) X(f32, s32, f32) X(f32, s32, f64) X(f32, f32, f32)        \
  X(f32, f32, f64)
/* Division of two arrays: one type only. divr has kernels of its own for
 * the integer types; its f32 key names the plain kernel. */
#define SORN_DIV_TRIPLES(X) X(u8, u8, u8) X(s16, s16, s16) X(s32, s32, s32) X(f32, f32, f32)
#define SORN_DIVR_OWN_TRIPLES(X) X(u8, u8, u8) X(s16, s16, s16) X(s32, s32, s32)
/* Division by constants: destination and source types, each with kernels
 * for 1, 3 and 4 channels (SORN_CONST_CHANNELS). The rounded forms name the
 * plain f32 kernels. */
#define SORN_DIVC_PAIRS(X) X(u8, u8) X(s16, s16) X(s32, s32) X(f32, f32)
#define SORN_DIVRC_OWN_PAIRS(X) X(u8, u8) X(s16, s16) X(s32, s32)
/* The channel counts that kernels keyed by channels exist for; X(c, ...)
 * with the further arguments passed on. */
#define SORN_CONST_CHANNELS(X, ...) X(1, __VA_ARGS__) X(3, __VA_ARGS__) X(4, __VA_ARGS__)

#define SORN_DECL_MUL(d, a, b) SORN_ARITH2_KERNEL_DECL(mul, d, a, b)
#define SORN_DECL_MULC(d, a, t) SORN_ARITH2C_KERNEL_DECL(mul, d, a, t)
#define SORN_DECL_DIV(d, a, b) SORN_ARITH2_KERNEL_DECL(div, d, a, b)
#define SORN_DECL_DIVR(d, a, b) SORN_ARITH2_KERNEL_DECL(divr, d, a, b)
SORN_MUL_TRIPLES(SORN_DECL_MUL)
SORN_MULC_TRIPLES(SORN_DECL_MULC)
SORN_DIV_TRIPLES(SORN_DECL_DIV)
SORN_DIVR_OWN_TRIPLES(SORN_DECL_DIVR)
#undef SORN_DECL_MUL
#undef SORN_DECL_MULC
#undef SORN_DECL_DIV
#undef SORN_DECL_DIVR
/* sorna__<family>_c<channels>_<dst><src>. */
#define SORN_DIVC_KERNEL_DECL(c, fam, d, a)                                                   \
  SornStatus sorna__##fam##_c##c##_##d##a(SornXE *xe, SornFlags flags, int32_t n,           \
                                          const int32_t *dims, void *dst,                   \
                                          const int32_t *dststrides, const void *pa,        \
                                          const int32_t *astrides, const double *cvec,      \
                                          int32_t sf, uint32_t extra, int32_t zero);
#define SORN_DECL_DIVC(d, a) SORN_CONST_CHANNELS(SORN_DIVC_KERNEL_DECL, divC, d, a)
#define SORN_DECL_RDIVC(d, a) SORN_CONST_CHANNELS(SORN_DIVC_KERNEL_DECL, rdivC, d, a)
#define SORN_DECL_DIVRC(d, a) SORN_CONST_CHANNELS(SORN_DIVC_KERNEL_DECL, divrC, d, a)
#define SORN_DECL_RDIVRC(d, a) SORN_CONST_CHANNELS(SORN_DIVC_KERNEL_DECL, rdivrC, d, a)
SORN_DIVC_PAIRS(SORN_DECL_DIVC)
SORN_DIVC_PAIRS(SORN_DECL_RDIVC)
SORN_DIVRC_OWN_PAIRS(SORN_DECL_DIVRC)
SORN_DIVRC_OWN_PAIRS(SORN_DECL_RDIVRC)
#undef SORN_DECL_DIVC
#undef SORN_DECL_RDIVC
#undef SORN_DECL_DIVRC
#undef SORN_DECL_RDIVRC
#undef SORN_DIVC_KERNEL_DECL

/* ---------------- Logical operations ----------------
 * Bitwise and, or, xor, complement, on arrays of one type (u8, s16, s32),
 * without scale factor. The constants of the C forms are rounded into the
 * type once per call. */
SornStatus _T_SornLogic2(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornVolume *dstRoi,
                         const SornVolume *aSite, const SornVolume *bSite);
SornStatus _T_SornLogic2c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const double *cvec, const SornVolume *dstRoi,
                          const SornVolume *aSite);

#define SORN_LOGIC_ENTRY_DECL(name)                                                           \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a, \
                        const SornArray *b, const SornVolume *dstRoi, const SornVolume *aSite,  \
                        const SornVolume *bSite);                                               \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                  \
                           const SornArray *a, const double *cvec, const SornVolume *dstRoi,   \
                           const SornVolume *aSite);
SORN_LOGIC_ENTRY_DECL(And)
SORN_LOGIC_ENTRY_DECL(Orr)
SORN_LOGIC_ENTRY_DECL(Xor)
#undef SORN_LOGIC_ENTRY_DECL
SornStatus SornNot(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,
                   const SornVolume *dstRoi, const SornVolume *aSite);

/* The operators' names pass whole: and, xor and not are operator tokens in
 * C++ and cannot be pasted. */
#define SORN_LOGIC_LAYERS_DECL(l2, l2c, l3, l3c)                                              \
  SornStatus l2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,           \
                uint32_t dsttype, void *dstbase, const int32_t *dstorigin,                    \
                const int32_t *dststrides, uint32_t atype, const void *abase,                 \
                const int32_t *aorigin, const int32_t *astrides, uint32_t btype,              \
                const void *bbase, const int32_t *borigin, const int32_t *bstrides);          \
  SornStatus l2c(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,          \
                 uint32_t dsttype, void *dstbase, const int32_t *dstorigin,                   \
                 const int32_t *dststrides, uint32_t atype, const void *abase,                \
                 const int32_t *aorigin, const int32_t *astrides, const double *cvec);        \
  SornStatus l3(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,           \
                uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,    \
                const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr,  \
                const int32_t *bstrides);                                                     \
  SornStatus l3c(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,          \
                 uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,   \
                 const void *aptr, const int32_t *astrides, const double *cvec);
SORN_LOGIC_LAYERS_DECL(sorna_and, sorna_andC, sorna__and, sorna__andC)
SORN_LOGIC_LAYERS_DECL(sorna_orr, sorna_orrC, sorna__orr, sorna__orrC)
SORN_LOGIC_LAYERS_DECL(sorna_xor, sorna_xorC, sorna__xor, sorna__xorC)
#undef SORN_LOGIC_LAYERS_DECL
SornStatus sorna_not(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                     const int32_t *dststrides, uint32_t atype, const void *abase,
                     const int32_t *aorigin, const int32_t *astrides);
SornStatus sorna__not(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides);

typedef SornStatus (*SornLogic2Kernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                       void *dst, const int32_t *dststrides, const void *a,
                                       const int32_t *astrides, const void *b,
                                       const int32_t *bstrides);
typedef SornStatus (*SornLogic1Kernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                       void *dst, const int32_t *dststrides, const void *a,
                                       const int32_t *astrides);
/* The constants stay f64 in cvec, one per channel; the last word is 0. */
typedef SornStatus (*SornLogicCKernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                       void *dst, const int32_t *dststrides, const void *a,
                                       const int32_t *astrides, const double *cvec,
                                       int32_t zero);

/* Keys: u8u8u8, s16s16s16, s32s32s32; u8u8, s16s16, s32s32 for not. */
SornLogic2Kernel sorna__landfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);
SornLogic2Kernel sorna__lorrfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);
SornLogic2Kernel sorna__lxorfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status);
SornLogic1Kernel sorna__lnotfun_imp(uint32_t dsttype, uint32_t atype, SornStatus *status);
/* Keyed by types and the channel count: 1, 3 and 4 have kernels, any other
 * count is invalid. */
SornLogicCKernel sorna__landcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                     SornStatus *status);
SornLogicCKernel sorna__lorrcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                     SornStatus *status);
SornLogicCKernel sorna__lxorcfun_imp(uint32_t dsttype, uint32_t atype, int32_t channels,
                                     SornStatus *status);

/* The element types of the logical kernels. */
#define SORN_LOGIC_TYPES(X) X(u8) X(s16) X(s32)

#define SORN_LOGIC2_KERNEL_DECL(prefix, t)                                                     \
  SornStatus prefix##t##t##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,     \
                             void *dst, const int32_t *dststrides, const void *pa,            \
                             const int32_t *astrides, const void *pb, const int32_t *bstrides);
#define SORN_LOGICC_KERNEL_DECL(c, prefix, t)                                                  \
  SornStatus prefix##c##_##t##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,  \
                                void *dst, const int32_t *dststrides, const void *pa,         \
                                const int32_t *astrides, const double *cvec, int32_t zero);
#define SORN_DECL_LOGIC(t)                                                                     \
  SORN_LOGIC2_KERNEL_DECL(sorna__and_c1_, t)                                                   \
  SORN_LOGIC2_KERNEL_DECL(sorna__orr_c1_, t)                                                   \
  SORN_LOGIC2_KERNEL_DECL(sorna__xor_c1_, t)                                                   \
  SornStatus sorna__not_c1_##t##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, \
                                  void *dst, const int32_t *dststrides, const void *pa,        \
                                  const int32_t *astrides);                                    \
  SORN_CONST_CHANNELS(SORN_LOGICC_KERNEL_DECL, sorna__andC_c, t)                               \
  SORN_CONST_CHANNELS(SORN_LOGICC_KERNEL_DECL, sorna__orrC_c, t)                               \
  SORN_CONST_CHANNELS(SORN_LOGICC_KERNEL_DECL, sorna__xorC_c, t)
SORN_LOGIC_TYPES(SORN_DECL_LOGIC)
#undef SORN_DECL_LOGIC
#undef SORN_LOGIC2_KERNEL_DECL
#undef SORN_LOGICC_KERNEL_DECL

/* ======================================================================
 * Comparison, conversion and data movement
 * ====================================================================== */

/* ---------------- Bulk primitives ----------------
 * Plain runs and blocks without records or statuses. Strides are in bytes
 * and may be 0 or negative; a count of 0 (or below) does nothing. */

void C_sorn_bcopy2d(void *dst, const void *src, int32_t dstStride, int32_t srcStride,
                    int32_t rows, size_t bytes);
/* Writes bytes of the fill vector's pattern: its 16 bytes repeat, or its
 * first 12 for nchan 3, from dst on. */
void C_sorn_bfill(void *dst, size_t bytes, int32_t nchan, const void *vector);
void C_sorn_bfill2d(void *dst, int32_t stride, int32_t rows, size_t bytes, int32_t nchan,
                    const void *vector);

/* Small histogram arithmetic, wrapping; a null src1 or acc means dst. */
void C_sorn_addLE256_16(uint16_t *dst, const uint16_t *src1, const uint16_t *src2, int32_t n);
void C_sorn_addLE256_8(uint8_t *dst, const uint8_t *src1, const uint8_t *src2, int32_t n);
void C_sorn_subaLE256_16(uint16_t *dst, const uint16_t *acc, const uint16_t *a, const uint16_t *b,
                         int32_t n);
void C_sorn_subaLE256_8(uint8_t *dst, const uint8_t *acc, const uint8_t *a, const uint8_t *b,
                        int32_t n);

/* Float runs with a constant; a null src means dst. */
void C_sorn_addvcf(float *dst, const float *src, int32_t n, float c);
void C_sorn_subvcf(float *dst, const float *src, int32_t n, float c);
void C_sorn_rsubvcf(float *dst, const float *src, int32_t n, float c);
void C_sorn_mulvcf(float *dst, const float *src, int32_t n, float c);
/* Multiplies by the reciprocal 1.0f / c, which it returns. */
float C_sorn_divvcf(float *dst, const float *src, int32_t n, float c);
void C_sorn_rdivvcf(float *dst, const float *src, int32_t n, float c);

/* Reductions of a run. Empty runs give 0. */
uint8_t C_sorn_maxu8_n(const uint8_t *a, int32_t n);
uint8_t C_sorn_minu8_n(const uint8_t *a, int32_t n);
float C_sorn_maxf_n(const float *a, int32_t n);
float C_sorn_minf_n(const float *a, int32_t n);
uint64_t C_sorn_sumu8_n(const uint8_t *a, int32_t n);
/* Only the low 16 bits are meant: histogram counts up to 65535. */
uint32_t C_sorn_sumi16_n(const uint16_t *a, int32_t n);
float C_sorn_sumf_n(const float *a, int32_t n);

/* Index row * cols + col of the first element equal (memelem) or not equal
 * (memcelem) to value, or -1. The S forms answer -2 for a null base. */
int32_t sorn_memelem2d(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                       int32_t cols, double value);
int32_t sorn_memcelem2d(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                        int32_t cols, double value);
int32_t sorn_memelem2dS(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                        int32_t cols, double value);
int32_t sorn_memcelem2dS(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                         int32_t cols, double value);

/* Byte hashes: 32 bits, bytes taken as signed chars. */
uint32_t sorn_bcshash(const char *s);
uint32_t sorn_bcsnhash(const char *s, size_t n);
uint32_t sorn_bhash(const void *p, size_t n);

/* ---------------- Fill ----------------
 * A fill vector is a block of 16, 32 or 64 bytes, aligned to 4, in which one
 * pixel's bytes repeat from the first byte to the end of the block. */

/* A one-channel mask is taken as an element mask. */
#define SORN_F_ELEMMASK 0x10000ull
/* Inverse mask: the skip value is 255, not 0. */
#define SORN_F_INVMASK  0x20000ull
#define SORN_TAG_FILL SORN_FOURCC('f', 'i', 'l', 'l')
#define SORN_TAG_FILX SORN_FOURCC('f', 'i', 'l', 'x')

/* The types a fill vector holds, and so the types SornFill, SornFillEx and
 * SornFillEx2 write; the 64-bit types are not supported. */
#define SORN_FILL_TYPES(X) X(u8) X(u16) X(u32) X(s8) X(s16) X(s32) X(f32)

/* Values are rounded to nearest (ties to even) in 32 bits and saturated to
 * the type; f32 is narrowed. nchan 1 to 4; a null fvals means zeros. */
SornStatus sorn_mkifillvalv16(SornElemType type, void *out, const double *fvals, int32_t nchan);
SornStatus sorn_mkifillvalv32(SornElemType type, void *out, const double *fvals, int32_t nchan);
SornStatus sorn_mkifillvalv64(SornElemType type, void *out, const double *fvals, int32_t nchan);
/* Extend a vector of 32-bit words: word i + step takes word i, upward. */
uint32_t *sorn_dupifillvalv3216(uint32_t *w, int32_t nchan);
uint32_t *sorn_dupifillvalv6416(uint32_t *w, int32_t nchan);
uint32_t *sorn_dupifillvalv6432(uint32_t *w, int32_t nchan);

SornStatus SornFill(SornXE *xe, SornFlags flags, const SornArray *dst, const SornVolume *dstRoi,
                    const double *fvals);
SornStatus SornFillEx(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *mask,
                      const SornVolume *dstRoi, const SornVolume *maskSite, const double *fvals);
/* Selected pixels take fvals1, the others fvals2. */
SornStatus SornFillEx2(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *mask,
                       const SornVolume *dstRoi, const SornVolume *maskSite, const double *fvals1,
                       const double *fvals2);
SornStatus SornTGAfill(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                       uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0);
SornStatus SornTGAfillEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                         uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                         uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1);

SornStatus sorna_fill(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                      const double *fvals);
SornStatus sorna_fillxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                        uint32_t mtype, const void *mbase, const int32_t *morigin,
                        const int32_t *mstrides, const double *fvals);
SornStatus sorna_fillem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                        uint32_t mtype, const void *mbase, const int32_t *morigin,
                        const int32_t *mstrides, const double *fvals);
SornStatus sorna_fillxm2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                         uint32_t mtype, const void *mbase, const int32_t *morigin,
                         const int32_t *mstrides, const double *fvals1, const double *fvals2);
SornStatus sorna_fillem2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                         uint32_t mtype, const void *mbase, const int32_t *morigin,
                         const int32_t *mstrides, const double *fvals1, const double *fvals2);

/* Layer 3: dims and strides from the packed word; the last three cells are
 * worked. The element mask reads its byte of element c of pixel x at
 * x * mstrides[n-2] + c * mstrides[n-1]. */
SornStatus sorna__fill(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, void *dst, const int32_t *strides, const double *fvals);
SornStatus sorna__fillxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *strides, const void *mask,
                         const int32_t *mstrides, const double *fvals);
SornStatus sorna__fillem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *strides, const void *mask,
                         const int32_t *mstrides, const double *fvals);
SornStatus sorna__fillxm2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, void *dst, const int32_t *strides, const void *mask,
                          const int32_t *mstrides, const double *fvals1, const double *fvals2);
SornStatus sorna__fillem2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, void *dst, const int32_t *strides, const void *mask,
                          const int32_t *mstrides, const double *fvals1, const double *fvals2);

/* The loops, on a plain count n of cells: rows dims[n-3] (one when n is 2),
 * dims[n-2] pixels of dims[n-1] channels; the element size is strides[n-1]. */
SornStatus sorna__dofill(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                         const int32_t *strides, const void *vector);
SornStatus sorna__dofillxm(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                           const int32_t *strides, const void *mask, const int32_t *mstrides,
                           const void *vector);
SornStatus sorna__dofillem(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                           const int32_t *strides, const void *mask, const int32_t *mstrides,
                           const void *vector);
SornStatus sorna__dofillxm2(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                            void *dst, const int32_t *strides, const void *mask,
                            const int32_t *mstrides, const void *vector1, const void *vector2);
SornStatus sorna__dofillem2(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                            void *dst, const int32_t *strides, const void *mask,
                            const int32_t *mstrides, const void *vector1, const void *vector2);
SornStatus _T_sorna__dofillem(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                              void *dst, const int32_t *strides, const void *mask,
                              const int32_t *mstrides, const void *vector);
SornStatus _T_sorna__dofillemc(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               void *dst, const int32_t *strides, const void *mask,
                               const int32_t *mstrides, const void *vector);

/* ---------------- Copy and border extension ----------------
 * A region copied as it stands, copied where a mask selects, or copied with
 * a frame around it (mkb, make border) whose pixels follow one of the
 * border kinds from the pixels of the region:
 *   0 none: a plain copy
 *   3 const: the border record's fill, one value per channel
 *   4 replicate: the edge pixel, i clamped to 0 .. n-1
 *   5 wrap: i mod n
 *   6 reflect: mirrored about the outer edge of the edge pixel,
 *     ..1 0 | 0 1 .. n-1 | n-1 n-2..
 *   7 reflect101: mirrored about the edge pixel itself, ..2 1 | 0 1 .. n-1 |
 *     n-2.. (a single pixel is replicated)
 * Only the low four bits of a kind count; the public entries take 2 for 7.
 * A border far wider than the region goes on with the same period, and the
 * corners follow from the rule along both axes. The border is a
 * SornBrShape: -lo[1] rows above, -lo[2] columns before, hi[1] rows below,
 * hi[2] columns after; the depth cell has none. */
#define SORN_BORDER_NONE       0
#define SORN_BORDER_UNKNOWN    2
#define SORN_BORDER_CONST      3
#define SORN_BORDER_REPLICATE  4
#define SORN_BORDER_WRAP       5
#define SORN_BORDER_REFLECT    6
#define SORN_BORDER_REFLECT101 7
/* Border copy: the centre is in place already; only the border is written. */
#define SORN_F_BORDER_ONLY 0x2000ull
#define SORN_TAG_COPY SORN_FOURCC('c', 'o', 'p', 'y')
#define SORN_TAG_CPEX SORN_FOURCC('c', 'p', 'e', 'x')
#define SORN_TAG_CMKB SORN_FOURCC('c', 'm', 'k', 'b')

struct SornBrShape;
struct SornSites;

/* The region of dstRoi (cut to dst) from srcSite's origin on in src. Same
 * element type and channel count; src of dst's rank, or rank 3 under a
 * rank-4 dst. */
SornStatus SornCopy(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                    const SornVolume *dstRoi, const SornVolume *srcSite);
/* The same where mask (u8, one channel or the image's) selects: a
 * one-channel mask selects whole pixels (a byte other than the skip value,
 * 0, or 255 under SORN_F_INVMASK) unless SORN_F_ELEMMASK asks for the
 * element form, where the mask byte, sign-extended to the element, selects
 * bits: (m & src) | (~m & dst), or (~m & src) | (m & dst) under
 * SORN_F_INVMASK. One-channel images of 1- or 2-byte elements always take
 * the element form. A null mask is SornCopy. */
SornStatus SornCopyEx(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornArray *mask, const SornVolume *dstRoi,
                      const SornVolume *srcSite, const SornVolume *maskSite);
/* The region srcRoi of src, with a border around it, into dst from the
 * origin of dstSite on: the border's corner at dstSite's origin, the region
 * -lo after it. A border larger than the room dst leaves is shared out in
 * proportion; a region larger than dst is cut. Pixels that src (or its
 * parent) really has around the region are copied as they are rather than
 * made by the border's rule, unless SORN_F_NOMARGIN; SORN_F_SITEMARGIN
 * keeps them to src's own site. A null src works in dst itself, and then a
 * null dstSite is srcRoi. Kind 0 needs no border. */
SornStatus SornCopyMkb(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstSite, const SornVolume *srcRoi, int32_t kind,
                       const struct SornBrShape *border);
/* The same with the boxes turned: dstRoi is the whole bordered block, the
 * region is that block narrowed by the border (or less, as far as src
 * reaches from srcSite's origin). */
SornStatus SornCopyRMkb(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                        const struct SornBrShape *border);

/* Slice forms. SornTGAcopyEx takes the mask form in data (a SornCopyArgs);
 * SornTGAcopymkb its kind, border and sites (a SornCopyMkbArgs). */
typedef struct SornCopyArgs {
  uint64_t elemform; /* 0: the pixel mask; otherwise the element mask */
} SornCopyArgs;
typedef struct SornCopyMkbArgs {
  uint32_t kind;
  const struct SornBrShape *border;
  const struct SornSites *sites;
} SornCopyMkbArgs;
SornStatus SornTGAcopy(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                       uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                       uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1);
SornStatus SornTGAcopyEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                         uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                         uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1,
                         uint32_t type2, void *base2, int32_t *origin2, int32_t *strides2);
SornStatus SornTGAcopymkb(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                          int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                          int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                          int32_t *strides1);

/* Layer 2: origins applied to the bases. sorna_copymkb takes the sites
 * relative to the source's origin (an empty site is the region itself). */
SornStatus sorna_copy(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, void *dst, const int32_t *dstOrigin,
                      const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                      const int32_t *srcStrides);
SornStatus sorna_copyxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, const void *mask, const int32_t *maskOrigin,
                        const int32_t *maskStrides);
SornStatus sorna_copyem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, const void *mask, const int32_t *maskOrigin,
                        const int32_t *maskStrides);
SornStatus sorna_copymkb(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind,
                         const struct SornBrShape *border, const struct SornSites *sites);

/* Layer 3, on the last three cells. sorna__copy moves whole pixels: rows of
 * dims[n-2] times the pixel stride bytes, whatever the element type. The
 * element mask reads its byte of element c of pixel x at x * mstrides[n-2] +
 * c * mstrides[n-1]. sorna__copymkb writes the region of dims from src at
 * -lo from dst, and the border around it; SORN_EINVAL for an unknown kind. */
SornStatus sorna__copy(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                       const int32_t *srcStrides);
SornStatus sorna__copyxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, const void *mask,
                         const int32_t *maskStrides);
SornStatus sorna__copyem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, const void *mask,
                         const int32_t *maskStrides);
SornStatus sorna__copymkb(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                          const int32_t *srcStrides, int32_t kind,
                          const struct SornBrShape *border, const struct SornSites *sites);
#define SORN_COPYMKB_KERNEL_DECL(kind)                                                        \
  SornStatus sorna__copymkb_##kind(SornXE *xe, SornFlags flags, SornDimPack pack,            \
                                   const int32_t *dims, uint32_t type, void *dst,            \
                                   const int32_t *dstStrides, const void *src,               \
                                   const int32_t *srcStrides,                                \
                                   const struct SornBrShape *border,                         \
                                   const struct SornSites *sites);
SORN_COPYMKB_KERNEL_DECL(const)
SORN_COPYMKB_KERNEL_DECL(replicate)
SORN_COPYMKB_KERNEL_DECL(wrap)
SORN_COPYMKB_KERNEL_DECL(reflect)
SORN_COPYMKB_KERNEL_DECL(reflect101)
#undef SORN_COPYMKB_KERNEL_DECL
/* The element-mask loops, on a plain count n of cells; element sizes 1, 2,
 * 4 and 8 (the element stride), else SORN_EINVAL. */
SornStatus _T_sorna__copyem(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                            void *dst, const int32_t *dstStrides, const void *src,
                            const int32_t *srcStrides, const void *mask,
                            const int32_t *maskStrides);
SornStatus _T_sorna__copyemc(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                             void *dst, const int32_t *dstStrides, const void *src,
                             const int32_t *srcStrides, const void *mask,
                             const int32_t *maskStrides);

/* ---------------- Comparison ----------------
 * Element-wise comparison of an image with a second image or with one
 * constant per channel. The plain forms write a mask: all ones of the
 * destination's width where the comparison holds, 0 where it fails (an f32
 * destination gets the bit pattern 0x3FFFFFFF, 1.99999988f, not 1.0). The
 * e forms write caller-given values instead.
 *
 * Only the low four bits of an operator count. Codes 3 to 7 are the
 * operators below; every other code compares as "not equal" in the
 * kernels, while the table builders accept 3 to 8 only. Integer sources
 * compare exactly in their own signedness; f32 sources compare within the
 * tolerance 1.1920929e-7 (two floats that close are equal, NaN is unequal
 * to everything and neither less nor greater).
 *
 * The two sources always have one element type; destinations of one width
 * share a kernel whatever their signedness. */
typedef uint32_t SornCmpOp;
#define SORN_CMP_NONE 0u
#define SORN_CMP_EQ   3u
#define SORN_CMP_LT   4u
#define SORN_CMP_LE   5u
#define SORN_CMP_GT   6u
#define SORN_CMP_GE   7u
#define SORN_CMP_NE   8u
/* The operator that holds exactly where op fails: 3 and 8, 4 and 7, 5 and
 * 6 swap; the bits above the low four are kept. */
#define SORN_CMP_COMPLEMENT(op) \
  (((op) & ~15u) | (((((((op) & 15u) - 3u) ^ 7u) + 1u)) & 15u))

#define SORN_TAG_COMP SORN_FOURCC('c', 'o', 'm', 'p')
#define SORN_TAG_CMPC SORN_FOURCC('c', 'm', 'p', 'C')
#define SORN_TAG_ECMP SORN_FOURCC('e', 'c', 'm', 'p')
#define SORN_TAG_ECMC SORN_FOURCC('e', 'c', 'm', 'C')

/* The values of the e forms. tval applies where the comparison holds, fval
 * where it fails. Each is a pointer to one double per channel (converted to
 * the destination type as a fill vector), or one of two small values: keep
 * the destination's element, or write the first source's element (the
 * sources' and destination's types must then agree). At least one of the
 * two must be a pointer, unless both keep the destination, which makes the
 * call the plain form. */
#define SORN_CMP_KEEPDST ((const double *)0)
#define SORN_CMP_KEEPSRC ((const double *)1)
/* Pointer values below this are the small readings of tval and fval. */
#define SORN_CMP_SMALLVAL 16u

/* A byte source of more pixels than this compares with a constant through
 * 256-entry tables, one per channel. There an s8 source and its constant
 * compare as unsigned bytes, a 2-channel image is not supported, and an
 * operator outside 3 to 8 is invalid. */
#define SORN_CMP_TABLE_LIMIT 16384

SornStatus SornCompare(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                       const SornArray *src2, const SornVolume *dstRoi,
                       const SornVolume *src1Site, const SornVolume *src2Site, SornCmpOp op);
SornStatus SornCompareC(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const double *cvec, const SornVolume *dstRoi, const SornVolume *srcSite,
                        SornCmpOp op);
SornStatus SornECompare(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                        const SornArray *src2, const SornVolume *dstRoi,
                        const SornVolume *src1Site, const SornVolume *src2Site, SornCmpOp op,
                        const double *tval, const double *fval);
SornStatus SornECompareC(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const double *cvec, const SornVolume *dstRoi, const SornVolume *srcSite,
                         SornCmpOp op, const double *tval, const double *fval);

/* Slice forms (operands dst, src1, src2 or dst, src): the arguments ride in
 * data as a SornCompareArgs. The two sources must have one type. */
typedef struct SornCompareArgs {
  SornCmpOp op;
  const double *cvec;
  const double *tval;
  const double *fval;
} SornCompareArgs;
SornStatus SornTGAcompare(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                          int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                          int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                          int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                          int32_t *strides2);
SornStatus SornTGAecompare(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                           int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                           int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                           int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                           int32_t *strides2);
SornStatus SornTGAcompareC(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                           int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                           int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                           int32_t *strides1);
SornStatus SornTGAecompareC(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                            int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                            int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                            int32_t *strides1);

/* Type-generic layer: every base moved to its origin. */
SornStatus sorna_compare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t dsttype, void *dst, const int32_t *dstorigin,
                         const int32_t *dststrides, uint32_t srctype, const void *src1,
                         const int32_t *origin1, const int32_t *strides1, const void *src2,
                         const int32_t *origin2, const int32_t *strides2, SornCmpOp op);
SornStatus sorna_ecompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstorigin,
                          const int32_t *dststrides, uint32_t srctype, const void *src1,
                          const int32_t *origin1, const int32_t *strides1, const void *src2,
                          const int32_t *origin2, const int32_t *strides2, SornCmpOp op,
                          const double *tval, const double *fval);
SornStatus sorna_compareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstorigin,
                          const int32_t *dststrides, uint32_t srctype, const void *src,
                          const int32_t *srcorigin, const int32_t *srcstrides,
                          const double *cvec, SornCmpOp op);
SornStatus sorna_ecompareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dstorigin,
                           const int32_t *dststrides, uint32_t srctype, const void *src,
                           const int32_t *srcorigin, const int32_t *srcstrides,
                           const double *cvec, SornCmpOp op, const double *tval,
                           const double *fval);

/* Dispatchers: data pointers at their origins. The plain forms hand an f32
 * destination to the e forms; the constant forms turn the constants into a
 * fill vector of the source type, the e forms their values into fill
 * vectors of the destination type. */
SornStatus sorna__compare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dststrides,
                          uint32_t srctype, const void *src1, const int32_t *strides1,
                          const void *src2, const int32_t *strides2, SornCmpOp op);
SornStatus sorna__ecompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides,
                           uint32_t srctype, const void *src1, const int32_t *strides1,
                           const void *src2, const int32_t *strides2, SornCmpOp op,
                           const double *tval, const double *fval);
SornStatus sorna__compareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides,
                           uint32_t srctype, const void *src, const int32_t *srcstrides,
                           const double *cvec, SornCmpOp op);
SornStatus sorna__ecompareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t dsttype, void *dst, const int32_t *dststrides,
                            uint32_t srctype, const void *src, const int32_t *srcstrides,
                            const double *cvec, SornCmpOp op, const double *tval,
                            const double *fval);

/* Kernels: n plain cells (rows dims[n-3], pixels dims[n-2], channels
 * dims[n-1]); the constant and the values as fill vectors, fval also as a
 * small value. */
typedef SornStatus (*SornCmpKernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                    void *dst, const int32_t *dststrides, const void *src1,
                                    const int32_t *strides1, const void *src2,
                                    const int32_t *strides2, SornCmpOp op);
typedef SornStatus (*SornCmpCKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                     const int32_t *dims, void *dst, const int32_t *dststrides,
                                     const void *src, const int32_t *srcstrides,
                                     const void *cvector, SornCmpOp op);
typedef SornStatus (*SornECmpKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                     const int32_t *dims, void *dst, const int32_t *dststrides,
                                     const void *src1, const int32_t *strides1,
                                     const void *src2, const int32_t *strides2, SornCmpOp op,
                                     const void *tval, const void *fval);
typedef SornStatus (*SornECmpCKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                      const int32_t *dims, void *dst, const int32_t *dststrides,
                                      const void *src, const int32_t *srcstrides,
                                      const void *cvector, SornCmpOp op, const void *tval,
                                      const void *fval);

/* Lookups by (destination code & 7) << 4 | source code. A pair without a
 * kernel gives sorna_proc_enotsup when both codes are known to the family
 * (destination an integer type, or for the e forms also a float one; source
 * any known type), sorna_proc_einval otherwise; the status in *status when
 * status is not null. */
SornCmpKernel sorna__cmpfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status);
SornCmpCKernel sorna__cmpcfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status);
SornECmpKernel sorna__ecmpfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status);
SornECmpCKernel sorna__ecmpcfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status);

/* Look up and call: the dispatchers' last step. */
SornStatus __sorna__swcompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                              uint32_t dsttype, void *dst, const int32_t *dststrides,
                              uint32_t srctype, const void *src1, const int32_t *strides1,
                              const void *src2, const int32_t *strides2, SornCmpOp op);
SornStatus __sorna__swecompare(SornXE *xe, SornFlags flags, SornDimPack pack,
                               const int32_t *dims, uint32_t dsttype, void *dst,
                               const int32_t *dststrides, uint32_t srctype, const void *src1,
                               const int32_t *strides1, const void *src2,
                               const int32_t *strides2, SornCmpOp op, const void *tval,
                               const void *fval);
SornStatus __sorna__swcompareC(SornXE *xe, SornFlags flags, SornDimPack pack,
                               const int32_t *dims, uint32_t dsttype, void *dst,
                               const int32_t *dststrides, uint32_t srctype, const void *src,
                               const int32_t *srcstrides, const void *cvector, SornCmpOp op);
SornStatus __sorna__swecompareC(SornXE *xe, SornFlags flags, SornDimPack pack,
                                const int32_t *dims, uint32_t dsttype, void *dst,
                                const int32_t *dststrides, uint32_t srctype, const void *src,
                                const int32_t *srcstrides, const void *cvector, SornCmpOp op,
                                const void *tval, const void *fval);

/* The type table: destination class, then the type of both sources. The
 * e forms have one more pair, f32 into f32. */
#define SORN_CMP_PAIRS(X)                                                                   \
  X(u8, u8) X(u8, s8) X(u8, s16) X(u8, s32) X(u8, f32) X(s16, u8) X(s16, s8) X(s16, s16)  \
  X(s16, s32) X(s16, f32) X(s32, u8) X(s32, s8) X(s32, s16) X(s32, s32) X(s32, f32)
#define SORN_ECMP_PAIRS(X) SORN_CMP_PAIRS(X) X(f32, f32)

#define SORN_CMP_KERNEL_DECL(d, s)                                                          \
  SornStatus __sorna__compare_##d##s(SornXE *xe, SornFlags flags, int32_t n,               \
                                     const int32_t *dims, void *dst,                       \
                                     const int32_t *dststrides, const void *src1,          \
                                     const int32_t *strides1, const void *src2,            \
                                     const int32_t *strides2, SornCmpOp op);               \
  SornStatus __sorna__compareC_##d##s(SornXE *xe, SornFlags flags, int32_t n,              \
                                      const int32_t *dims, void *dst,                      \
                                      const int32_t *dststrides, const void *src,          \
                                      const int32_t *srcstrides, const void *cvector,      \
                                      SornCmpOp op);
#define SORN_ECMP_KERNEL_DECL(d, s)                                                         \
  SornStatus __sorna__ecompare_##d##s(SornXE *xe, SornFlags flags, int32_t n,              \
                                      const int32_t *dims, void *dst,                      \
                                      const int32_t *dststrides, const void *src1,         \
                                      const int32_t *strides1, const void *src2,           \
                                      const int32_t *strides2, SornCmpOp op,               \
                                      const void *tval, const void *fval);                 \
  SornStatus __sorna__ecompareC_##d##s(SornXE *xe, SornFlags flags, int32_t n,             \
                                       const int32_t *dims, void *dst,                     \
                                       const int32_t *dststrides, const void *src,         \
                                       const int32_t *srcstrides, const void *cvector,     \
                                       SornCmpOp op, const void *tval, const void *fval);
SORN_CMP_PAIRS(SORN_CMP_KERNEL_DECL)
SORN_ECMP_PAIRS(SORN_ECMP_KERNEL_DECL)
#undef SORN_CMP_KERNEL_DECL
#undef SORN_ECMP_KERNEL_DECL

/* Byte translation tables: tables is an array of nchan pointers to 256
 * bytes each. One condition: entries that meet op against the channel's
 * constant take T, the others F. The value arguments read like those of
 * the e forms: pointers (one value per channel) or small values; both 0
 * give T 255 and F 0; an F that is not a pointer is the identity (entry i
 * is i); a T that is not a pointer, with F a pointer, complements op and
 * takes F's values as T. The table forms here take doubles (converted to
 * u8 by the fill vector rule); the inner forms (sorn__) take one byte per
 * channel. SORN_EINVAL for an operator outside 3 to 8, for two small
 * values that are not both 0, or for nchan outside 1 to 4. */
SornStatus sorn_mkcmpxlatab(uint8_t **tables, SornCmpOp op, const double *cvec,
                            const double *tval, const double *fval, int32_t nchan);
SornStatus sorn__mkcmpxlatab(uint8_t **tables, SornCmpOp op, const uint8_t *cbytes,
                             const uint8_t *tval, const uint8_t *fval, int32_t nchan);
/* Two conditions: entries start as the identity; those that meet op1
 * against c1 take the low value L (0 unless lowval is a pointer), then
 * those that meet op2 against c2 take the high value H (255 unless highval
 * is a pointer); the later write wins. */
SornStatus sorn_mkcmpxlatab2(uint8_t **tables, SornCmpOp op1, SornCmpOp op2,
                             const double *c1vec, const double *c2vec, const double *lowval,
                             const double *highval, int32_t nchan);
SornStatus sorn__mkcmpxlatab2(uint8_t **tables, SornCmpOp op1, SornCmpOp op2,
                              const uint8_t *c1bytes, const uint8_t *c2bytes,
                              const uint8_t *lowval, const uint8_t *highval, int32_t nchan);
/* Applies the table of each channel to a byte image of rows by width
 * pixels: 1, 3 or 4 channels; 2 channels SORN_ENOTSUP, other counts
 * SORN_EINVAL. Zero rows or width succeed at once. */
SornStatus sorn_xlat2d_u8(uint8_t *const *tables, void *dst, const void *src,
                          int32_t dstRowStride, int32_t srcRowStride, int32_t rows,
                          int32_t width, int32_t nchan);

/* ---------------- Thresholding ----------------
 * Replaces the elements of an image that meet one or two conditions; all
 * element work is done by the comparison above. A condition is constant
 * ("sheer": one threshold per channel) or adaptive (a threshold image).
 * Constant thresholds can come from Otsu's method, on the image itself or on
 * a copy with its slow background taken out ("usto"); adaptive ones from a
 * box-blurred copy ("blur"). */
#define SORN_TAG_THRH SORN_FOURCC('t', 'h', 'r', 'h')
#define SORN_TAG_CTHH SORN_FOURCC('c', 't', 'h', 'h')

/* Methods, low four bits of SornThresholdSpec.method (sorn_thhmethod_str
 * names them); bit 4 takes every default and leaves the rest of the record
 * unread. */
#define SORN_THH_IMMEDIATE 0u
#define SORN_THH_OTSU      3u
#define SORN_THH_USTO      4u
#define SORN_THH_BLUR      5u
#define SORN_THH_DEFAULTS  16u
/* The box filters of the usto and blur methods see the region alone and
 * make every pixel around it by reflection, unless these flags let them
 * read the real pixels around the region in the source's own site
 * (SORN_F_THH_MARGIN) and beyond it in its parent's (SORN_F_THH_PARMARGIN). */
#define SORN_F_THH_MARGIN    0x4000000ull
#define SORN_F_THH_PARMARGIN 0x8000000ull

/* The method record. For Otsu and usto: per channel the range of the
 * histogram (lo NaN: the default, 0 to the type's top; lo infinite or above
 * hi: the image is measured) and its bins (below 2: the default, 256 for
 * u8, s16, s32 and 384 for the other types); usto's two boxes, size cells
 * plane, rows, columns, channels (an empty blurSize makes usto plain Otsu).
 * For the blur method the first 32 bytes of vrng hold instead one
 * SornVolume, the blur box as a window (origin the anchor, size the size;
 * zero sizes are the default box of 5 by 5): write it there with memcpy. */
typedef struct SornThresholdSpec {
  uint32_t method;
  SornVrng vrng[4];
  int32_t bins[4];
  int32_t blurSize[4];
  int32_t flatSize[4];
} SornThresholdSpec;

/* One condition. `value` is written where it holds: in a constant
 * condition a NaN value means the threshold itself. A NaN thresh[0] makes
 * the condition adaptive: the eight bytes of thresh[1] then hold a pointer
 * to the SornArray of thresholds (write it with memcpy), of the image's
 * type and channels, covering the region from its own first pixel. */
typedef struct SornThresholdCriterion {
  uint32_t op;
  double thresh[4];
  double value[4];
} SornThresholdCriterion;

/* SornThreshold: a null src thresholds dst in place (a null srcSite then
 * takes dstRoi); a null spec is the immediate method. count is the number
 * of conditions in criteria; the Otsu and blur methods take at most 2, and
 * with none they make their own: below the threshold 0, at or above it the
 * type's top (255 for u8, s16, s32, else 1.0). Elements that meet no
 * condition are copied from the source. With two conditions the second sees
 * the first one's output, unless the pair can be done in one pass.
 * SornComputeThresholdByOtsu gives the threshold of each channel selected
 * by flag bits 4-7 (0: all); vranges and bins are as in the method record,
 * may be null, and take the ranges measured and the bins used. Otsu works
 * on one-channel images: three or four channels answer SORN_ENOTSUP. */
SornStatus SornThreshold(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const SornVolume *dstRoi, const SornVolume *srcSite,
                         const SornThresholdSpec *spec, const SornThresholdCriterion *criteria,
                         int32_t count);
SornStatus SornComputeThresholdByOtsu(SornXE *xe, SornFlags flags, const SornArray *src,
                                      const SornVolume *roi, double *thresholds,
                                      SornVrng *vranges, int32_t *bins);

/* The arguments the slice forms take from data. */
typedef struct SornThresholdArgs {
  const SornThresholdSpec *how; /* the method record; null: immediate */
  const SornThresholdCriterion *criteria;
  int32_t count;
  const struct SornSites *sites; /* the source's site pair, for the filters */
} SornThresholdArgs;
typedef struct SornOtsuArgs {
  double *thresholds;
  SornVrng *vranges;
  int32_t *bins;
} SornOtsuArgs;
SornStatus SornTGAthreshold(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                            int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                            int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                            int32_t *strides1);
SornStatus SornTGAcomputeThresholdByOtsu(SornXE *xe, SornFlags flags, void *data,
                                         SornDimPack pack, int32_t *dims, uint32_t type0,
                                         void *base0, int32_t *origin0, int32_t *strides0);

/* Type-generic layer (bases moved to their origins) and dispatchers. The
 * method forms take the source's site pair; dst and src have one type. */
#define SORN_THRESHOLD_LAYERS_DECL(name)                                                      \
  SornStatus sorna_##name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                          uint32_t type, void *dst, const int32_t *dstorigin,                 \
                          const int32_t *dststrides, const void *src,                         \
                          const int32_t *srcorigin, const int32_t *srcstrides,                \
                          const SornThresholdCriterion *criteria, int32_t count);             \
  SornStatus sorna__##name(SornXE *xe, SornFlags flags, SornDimPack pack,                     \
                           const int32_t *dims, uint32_t type, void *dst,                     \
                           const int32_t *dststrides, const void *src,                        \
                           const int32_t *srcstrides, const SornThresholdCriterion *criteria, \
                           int32_t count);
#define SORN_ETHRESHOLD_LAYERS_DECL(name)                                                     \
  SornStatus sorna_##name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                          uint32_t type, void *dst, const int32_t *dstorigin,                 \
                          const int32_t *dststrides, const void *src,                         \
                          const int32_t *srcorigin, const int32_t *srcstrides,                \
                          const SornThresholdSpec *spec,                                      \
                          const SornThresholdCriterion *criteria, int32_t count,              \
                          const struct SornSites *sites);                                     \
  SornStatus sorna__##name(SornXE *xe, SornFlags flags, SornDimPack pack,                     \
                           const int32_t *dims, uint32_t type, void *dst,                     \
                           const int32_t *dststrides, const void *src,                        \
                           const int32_t *srcstrides, const SornThresholdSpec *spec,          \
                           const SornThresholdCriterion *criteria, int32_t count,             \
                           const struct SornSites *sites);
SORN_THRESHOLD_LAYERS_DECL(threshold)
SORN_THRESHOLD_LAYERS_DECL(sheer_threshold_n1)
SORN_THRESHOLD_LAYERS_DECL(sheer_threshold_n2)
SORN_THRESHOLD_LAYERS_DECL(adaptive_threshold_n1)
SORN_THRESHOLD_LAYERS_DECL(adaptive_threshold_n2)
SORN_ETHRESHOLD_LAYERS_DECL(ethreshold)
SORN_ETHRESHOLD_LAYERS_DECL(ethreshold_otsu)
SORN_ETHRESHOLD_LAYERS_DECL(ethreshold_usto)
SORN_ETHRESHOLD_LAYERS_DECL(ethreshold_blur)
#undef SORN_THRESHOLD_LAYERS_DECL
#undef SORN_ETHRESHOLD_LAYERS_DECL
SornStatus sorna_compute_threshold_otsu(SornXE *xe, SornFlags flags, SornDimPack pack,
                                        const int32_t *dims, uint32_t type, const void *src,
                                        const int32_t *origin, const int32_t *strides,
                                        double *thresholds, SornVrng *vranges, int32_t *bins);
SornStatus sorna__compute_threshold_otsu(SornXE *xe, SornFlags flags, SornDimPack pack,
                                         const int32_t *dims, uint32_t type, const void *src,
                                         const int32_t *strides, double *thresholds,
                                         SornVrng *vranges, int32_t *bins);

struct SornHist;
/* The Otsu threshold of one filled histogram, in double precision over the
 * values i * width + low of its bins: the bin that best parts the pixels
 * into two classes (a later bin must beat the best by more than 2^-23),
 * plus one bin width less 2^-23, so that "less than" the result takes that
 * bin's class below. The _i form rounds it to nearest. */
double sorna_calculate_threshold_otsu_f(const struct SornHist *hist);
double sorna_calculate_threshold_otsu_i(const struct SornHist *hist);

/* ---------------- Conversion and scaling ----------------
 * An array of one element type into an array of another, between u8, s16,
 * s32 and f32: the plain saturating conversion ("t"), the map of one value
 * range onto another ("v"), and the map by a scale and an offset ("e"),
 * which becomes a v map between the source's range and the scaled one. */

/* The t conversion of a region, by element types: n cells of dims from
 * the first (n is the count, not a packing word). */
SornStatus __sorna__swtconvert(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src, const int32_t *srcstrides);

/* Kernels of the t conversion: type is the destination's. */
typedef SornStatus (*SornTcvtKernel)(SornXE *xe, SornFlags flags, SornDimPack pack,
                                     const int32_t *dims, uint32_t type, void *dst,
                                     const int32_t *dststrides, const void *src,
                                     const int32_t *srcstrides);
/* Keys (full destination code << 4) | full source code. */
SornTcvtKernel sorna__tcvtfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status);

/* The pairs of different types: destination, source. */
#define SORN_TCVT_PAIRS(X)                                                                   \
  X(u8, s16) X(u8, s32) X(u8, f32) X(s16, u8) X(s16, s32) X(s16, f32) X(s32, u8) X(s32, s16) \
  X(s32, f32) X(f32, u8) X(f32, s16) X(f32, s32)

#define SORN_TCVT_KERNEL_DECL(d, s)                                                            \
  SornStatus __sorna__tconvert_##d##s(SornXE *xe, SornFlags flags, SornDimPack pack,          \
                                      const int32_t *dims, uint32_t type, void *dst,          \
                                      const int32_t *dststrides, const void *src,             \
                                      const int32_t *srcstrides);
SORN_TCVT_PAIRS(SORN_TCVT_KERNEL_DECL)
#undef SORN_TCVT_KERNEL_DECL

/* The v map between value ranges: kernels by the same pairs, and the like
 * types, whose kernels are the scalings __sorna__vscale_<type>. Keys as for
 * the t kernels. A kernel takes one range per channel of each side. */
typedef SornStatus (*SornVcvtKernel)(SornXE *xe, SornFlags flags, SornDimPack pack,
                                     const int32_t *dims, uint32_t type, void *dst,
                                     const int32_t *dststrides, const void *src,
                                     const int32_t *srcstrides, const SornVrng *dstRange,
                                     const SornVrng *srcRange);
SornVcvtKernel sorna__vcvtfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status);

#define SORN_VSCALE_TYPES(X) X(u8) X(s16) X(s32) X(f32)
#define SORN_VCVT_KERNEL_DECL(d, s)                                                            \
  SornStatus __sorna__vconvert_##d##s(SornXE *xe, SornFlags flags, SornDimPack pack,          \
                                      const int32_t *dims, uint32_t type, void *dst,          \
                                      const int32_t *dststrides, const void *src,             \
                                      const int32_t *srcstrides, const SornVrng *dstRange,    \
                                      const SornVrng *srcRange);
SORN_TCVT_PAIRS(SORN_VCVT_KERNEL_DECL)
#undef SORN_VCVT_KERNEL_DECL
#define SORN_VSCALE_KERNEL_DECL(t)                                                              \
  SornStatus __sorna__vscale_##t(SornXE *xe, SornFlags flags, SornDimPack pack,                \
                                 const int32_t *dims, uint32_t type, void *dst,                \
                                 const int32_t *dststrides, const void *src,                   \
                                 const int32_t *srcstrides, const SornVrng *dstRange,          \
                                 const SornVrng *srcRange);
SORN_VSCALE_TYPES(SORN_VSCALE_KERNEL_DECL)
#undef SORN_VSCALE_KERNEL_DECL

/* The v map of a region by element types: a channel whose source or
 * destination range is empty within 2^-23 makes the whole region the
 * destination's low ends; otherwise the v kernel of the pair. */
SornStatus __sorna__swvconvert(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src, const int32_t *srcstrides,
                               const SornVrng *dstRange, const SornVrng *srcRange);

/* SornConvert: dst = src mapped by scale and offset (one double per
 * channel; a NaN scale counts as 1, an offset that is not finite as none),
 * from the source's range (measured where srcRange is null, else completed
 * from the image). A map that leaves the destination's type is shifted back
 * while its slope fits, and clipped otherwise. A scale of 1 with no offset
 * is the plain saturating conversion, without measuring.
 * SornVConvert: dst = src mapped from srcRange onto dstRange (completed in
 * place for the destination type, and changed so); with no dstRange the
 * plain saturating conversion; the destination ranges are given one span
 * for all channels (the least low, the largest high) before the map.
 * Channels whose destination ranges still differ (SornConvert with scales or
 * offsets that differ by channel) are mapped each on its own, as
 * SornMulAddCC maps them: dst = src * gain + bias, with its rounding and
 * saturation. */
#define SORN_TAG_ECVT SORN_FOURCC('e', 'c', 'v', 't')
#define SORN_TAG_VCVT SORN_FOURCC('v', 'c', 'v', 't')
SornStatus SornConvert(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcSite, const double *scale,
                       const double *offset, const SornVrng *srcRange);
SornStatus SornVConvert(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const SornVolume *dstRoi, const SornVolume *srcSite, SornVrng *dstRange,
                        const SornVrng *srcRange);

/* The arguments the slice forms take from data. */
typedef struct SornConvertArgs {
  const double *scale;
  const double *offset;
  const SornVrng *srcRange;
} SornConvertArgs;
typedef struct SornVConvertArgs {
  SornVrng *dstRange;
  const SornVrng *srcRange;
} SornVConvertArgs;
SornStatus SornTGAconvert(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                          uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                          uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1);
SornStatus SornTGAvconvert(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                           int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                           int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                           int32_t *strides1);

/* Layer 2: the origins applied. The scale forms are the conversions
 * between one type. */
SornStatus sorna_econvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, uint32_t srctype, const void *src,
                          const int32_t *srcOrigin, const int32_t *srcStrides,
                          const double *scale, const double *offset, const SornVrng *srcRange);
SornStatus sorna_vconvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, uint32_t srctype, const void *src,
                          const int32_t *srcOrigin, const int32_t *srcStrides,
                          SornVrng *dstRange, const SornVrng *srcRange);
SornStatus sorna_escale(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, const double *scale, const double *offset,
                        const SornVrng *srcRange);
SornStatus sorna_vscale(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, SornVrng *dstRange, const SornVrng *srcRange);

/* Layer 3: the e and v dispatchers, on bases at the region's first pixel. */
SornStatus sorna__econvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides,
                           uint32_t srctype, const void *src, const int32_t *srcstrides,
                           const double *scale, const double *offset, const SornVrng *srcRange);
SornStatus sorna__vconvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides,
                           uint32_t srctype, const void *src, const int32_t *srcstrides,
                           SornVrng *dstRange, const SornVrng *srcRange);

/* ---------------- Sort and search ----------------
 * Sequences of n records of size bytes each from base, ordered by a
 * caller's comparison: below 0 when a sorts before b, 0 when they are
 * equal, above 0 otherwise. Records are moved by swapping their bytes.
 *
 * Three levels of each sort:
 *   KuXxxSort      checked: -1 for size 0, for more than 0x7FFFFFFF bytes
 *                  of records, or (n above 0) a null base or cmp; else 0
 *   KuXxxSort_nck  no checks; fewer than two records are left alone
 *   __KuXxxSort    the kernel itself, for n of 3 and more
 * KuQuickSort is not stable and needs no memory: a segment that its
 * partitions have split more than 63 times is heap sorted, so no input
 * takes it beyond O(n log n) comparisons. KuHeapSort is not stable either;
 * KuInsertSort is, and takes a buffer of one record from malloc when
 * records are larger than 256 bytes (without it the records stay as they
 * were). KuSelectSort makes n(n-1)/2 comparisons. */
typedef int (*KuCompareProc)(const void *a, const void *b, void *ctx);

int KuQuickSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
int KuHeapSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
int KuInsertSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
int KuSelectSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void KuQuickSort_nck(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void KuHeapSort_nck(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void KuInsertSort_nck(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void KuSelectSort_nck(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void __KuQuickSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void __KuHeapSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void __KuInsertSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);
void __KuSelectSort(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx);

/* Binary searches over sorted records; here cmp(element, key, ctx).
 *   KuBsearch    a record equal to key, or null
 *   KuBsearchN   a record equal to key if the search meets one, else the
 *                first record above key (one past the end when none is)
 *   KuBsearchP   a record equal to key if the search meets one, else the
 *                last record below key (null when key sorts first)
 *   KuBsearch_s  KuBsearch with the checks of the sorts (n 0 needs no
 *                operands); status, when not null, becomes 0 when a record
 *                was found and -1 otherwise */
void *KuBsearch(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                void *ctx);
void *KuBsearchN(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                 void *ctx);
void *KuBsearchP(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                 void *ctx);
void *KuBsearch_s(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                  void *ctx, int64_t *status);

/* ======================================================================
 * Statistics
 * ====================================================================== */

/* Pixel masks (the `_xm` kernels and the `Ex` entries): one u8 per pixel; a
 * pixel takes part when its byte differs from the skip value, 0, or 255 under
 * SORN_F_STATS_INVMASK. */
#define SORN_F_STATS_INVMASK  0x20000ull
/* Either bit forces the narrow-accumulator sums. */
#define SORN_F_SUM_FAST       0x200000ull
#define SORN_F_SUM_FAST2      0x400000ull
/* Masked sums also count the selected pixels and answer that count. */
#define SORN_F_SUM_COUNT      0x10000000ull

#define SORN_TAG_HIST SORN_FOURCC('h', 'i', 's', 't')
#define SORN_TAG_HSTX SORN_FOURCC('h', 's', 't', 'x')
#define SORN_TAG_SUM  SORN_FOURCC('s', 'u', 'm', ' ')
#define SORN_TAG_SUMX SORN_FOURCC('s', 'u', 'm', 'x')
#define SORN_TAG_MEAN SORN_FOURCC('m', 'e', 'a', 'n')
#define SORN_TAG_MEAX SORN_FOURCC('m', 'e', 'a', 'x')

/* The histogram of one channel. 56 bytes. */
typedef struct SornHist {
  uint32_t isum;     /* integer weighted sum, wraps at 32 bits */
  int32_t ilow;      /* low rounded to nearest */
  int32_t ihigh;     /* high rounded to nearest */
  int32_t irange;    /* ihigh - ilow + 1 */
  int32_t iwidth;    /* integer bin width */
  float fsum;        /* float weighted sum */
  float low;
  float high;
  float span;        /* high - low */
  float width;       /* span / (bins - 1), 0 for one bin */
  uint32_t total;    /* pixels of the frame, rows * cols */
  uint32_t bins;
  uint32_t *counts;  /* bins + 1 counters */
} SornHist;

/* What a histogram is set up from. */
typedef struct SornHistInit {
  uint32_t elemtype; /* SornElemType */
  int32_t bins;
  double low;
  double high;
  int32_t planes;    /* always 1 */
  int32_t rows;
  int32_t cols;
} SornHistInit;

/* Record life cycle. Multi-channel forms take a channels word: its count of
 * records, and in bits 4-7 a mask of the selected ones (0: all). */
uint32_t sorn_hist_inithdr(SornHist *hist, const SornHistInit *init);
int32_t sorn_hist_inithdr_$n(uint32_t w, SornHist *hists, const SornHistInit *inits);
SornStatus __sorn_histogram__$ia(SornHist *hist, const SornHistInit *init);
SornStatus __sorn_histogram__$n$ia(uint32_t w, SornHist *hists, const SornHistInit *inits);
SornStatus __sorn_histogram__$xe(SornHist *hist, const SornHistInit *init, SornXE *xe);
SornStatus __sorn_histogram__$n$xe(uint32_t w, SornHist *hists, const SornHistInit *inits,
                                   SornXE *xe);
SornHist *sorn_hist_reset(SornHist *hist);
SornHist *sorn_hist_reset_$n(uint32_t w, SornHist *hists);
SornHist *sorn_hist_fini(SornHist *hist);
SornHist *sorn_hist_fini_$n(uint32_t w, SornHist *hists);
SornHist *sorn_hist_fini_$xe(SornHist *hist, SornXE *xe);
SornHist *sorn_hist_fini_$n$xe(uint32_t w, SornHist *hists, SornXE *xe);
SornStatus sorn_hist__init(int32_t mode, SornHist *hist, const SornHistInit *init);
SornStatus sorn_hist__init_n(int32_t mode, uint32_t w, SornHist *hists,
                             const SornHistInit *inits);
SornStatus sorn_hist__init_xe(int32_t mode, SornHist *hist, const SornHistInit *init,
                              SornXE *xe);
SornStatus sorn_hist__init_n_xe(int32_t mode, uint32_t w, SornHist *hists,
                                const SornHistInit *inits, SornXE *xe);

/* Counting: hists holds one record per channel, set up in advance; the
 * operations add to it. mode 0 is the only one implemented. */
SornStatus SornHistogram(SornXE *xe, SornFlags flags, const SornArray *src,
                         const SornVolume *srcRoi, int32_t mode, SornHist *hists);
SornStatus SornHistogramEx(SornXE *xe, SornFlags flags, const SornArray *src,
                           const SornArray *mask, const SornVolume *srcRoi,
                           const SornVolume *maskSite, int32_t mode, SornHist *hists);
SornStatus SornTGAhistogram(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                            int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                            int32_t *strides0);
SornStatus SornTGAhistogramEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                              int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                              int32_t *strides0, uint32_t type1, void *base1,
                              int32_t *origin1, int32_t *strides1);
SornStatus sorna_histogram(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t type, const void *base, const int32_t *origin,
                           const int32_t *strides, SornHist *hists);
SornStatus sorna_histogram_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                              const int32_t *dims, uint32_t type, const void *base,
                              const int32_t *origin, const int32_t *strides, uint32_t mtype,
                              const void *mbase, const int32_t *morigin,
                              const int32_t *mstrides, SornHist *hists);
SornStatus sorna__histogram(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t type, const void *src, const int32_t *strides,
                            SornHist *hists);
SornStatus sorna__histogram_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                               const int32_t *dims, uint32_t type, const void *src,
                               const int32_t *strides, const void *mask,
                               const int32_t *mstrides, SornHist *hists);

/* Counting kernels: n plain dimensions, rows dims[n-3], columns dims[n-2]. */
typedef SornStatus (*SornHistKernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                     const void *src, const int32_t *strides, SornHist *hists);
typedef SornStatus (*SornHistXmKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                       const int32_t *dims, const void *src,
                                       const int32_t *strides, const uint8_t *mask,
                                       const int32_t *mstrides, SornHist *hists);
SornHistKernel sorna__histofun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornHistXmKernel sorna__histofunxm_imp(uint32_t chword, SornElemType type, SornStatus *status);

/* The kernel tables of the statistics: element types, and channel forms. */
#define SORN_HIST_TYPES(X) X(u8) X(s8) X(s16) X(s32) X(f32)
#define SORN_HIST_XM_TYPES(X) X(u8) X(s16) X(s32) X(f32)
#define SORN_SUM_TYPES(X) X(u8) X(s16) X(s32) X(f32)
#define SORN_STATS_CHANNELS(X, t) X(1, t) X(3, t) X(4, t)

#define SORN_HIST_KERNEL_DECL1(c, t)                                                         \
  SornStatus sorna__histogram_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,           \
                                         const int32_t *dims, const void *src,             \
                                         const int32_t *strides, SornHist *hists);
#define SORN_HIST_KERNEL_DECL(t) SORN_STATS_CHANNELS(SORN_HIST_KERNEL_DECL1, t)
SORN_HIST_TYPES(SORN_HIST_KERNEL_DECL)
#undef SORN_HIST_KERNEL_DECL
#undef SORN_HIST_KERNEL_DECL1
#define SORN_HIST_XM_KERNEL_DECL1(c, t)                                                      \
  SornStatus sorna__histogram_xm_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,        \
                                            const int32_t *dims, const void *src,          \
                                            const int32_t *strides, const uint8_t *mask,   \
                                            const int32_t *mstrides, SornHist *hists);
#define SORN_HIST_XM_KERNEL_DECL(t) SORN_STATS_CHANNELS(SORN_HIST_XM_KERNEL_DECL1, t)
SORN_HIST_XM_TYPES(SORN_HIST_XM_KERNEL_DECL)
#undef SORN_HIST_XM_KERNEL_DECL
#undef SORN_HIST_XM_KERNEL_DECL1

/* Sums and means: one double per channel, overwritten. The masked forms
 * answer a positive count of the selected pixels under SORN_F_SUM_COUNT, and
 * SornMeanEx always does: only negative answers are errors. */
SornStatus SornSum(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *srcRoi,
                   double *sums);
SornStatus SornSumEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                     const SornVolume *srcRoi, const SornVolume *maskSite, double *sums);
SornStatus SornMean(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *srcRoi,
                    double *means);
SornStatus SornMeanEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                      const SornVolume *srcRoi, const SornVolume *maskSite, double *means);
SornStatus SornTGAsum(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                      uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0);
SornStatus SornTGAsumEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                        int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                        int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                        int32_t *strides1);
SornStatus SornTGAmean(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                       uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0);
SornStatus SornTGAmeanEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                         int32_t *strides1);
SornStatus sorna_sum(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t type, const void *base, const int32_t *origin,
                     const int32_t *strides, double *sums);
SornStatus sorna_sum_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, const void *base, const int32_t *origin,
                        const int32_t *strides, uint32_t mtype, const void *mbase,
                        const int32_t *morigin, const int32_t *mstrides, double *sums);
SornStatus sorna_mean(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, const void *base, const int32_t *origin,
                      const int32_t *strides, double *means);
SornStatus sorna_mean_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, const void *base, const int32_t *origin,
                         const int32_t *strides, uint32_t mtype, const void *mbase,
                         const int32_t *morigin, const int32_t *mstrides, double *means);
SornStatus sorna__sum(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, const void *src, const int32_t *strides, double *sums);
SornStatus sorna__sum_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, const void *src, const int32_t *strides,
                         const void *mask, const int32_t *mstrides, double *sums);
SornStatus sorna__mean(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, const void *src, const int32_t *strides, double *means);
SornStatus sorna__mean_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, const void *src, const int32_t *strides,
                          const void *mask, const int32_t *mstrides, double *means);

typedef SornStatus (*SornSumKernel)(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                                    const void *src, const int32_t *strides, double *sums);
typedef SornStatus (*SornSumXmKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                      const int32_t *dims, const void *src,
                                      const int32_t *strides, const uint8_t *mask,
                                      const int32_t *mstrides, double *sums);
SornSumKernel sorna__sumfun_imp(SornFlags flags, uint32_t chword, SornElemType type,
                                SornStatus *status);
SornSumXmKernel sorna__sumfunxm_imp(SornFlags flags, uint32_t chword, SornElemType type,
                                    SornStatus *status);

#define SORN_SUM_KERNEL_DECL1(c, t)                                                          \
  SornStatus sorna__sum_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,                 \
                                   const int32_t *dims, const void *src,                   \
                                   const int32_t *strides, double *sums);                  \
  SornStatus sorna__fastsum_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,             \
                                       const int32_t *dims, const void *src,               \
                                       const int32_t *strides, double *sums);              \
  SornStatus sorna__sum_xm_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,              \
                                      const int32_t *dims, const void *src,                \
                                      const int32_t *strides, const uint8_t *mask,         \
                                      const int32_t *mstrides, double *sums);              \
  SornStatus sorna__fastsum_xm_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,          \
                                          const int32_t *dims, const void *src,            \
                                          const int32_t *strides, const uint8_t *mask,     \
                                          const int32_t *mstrides, double *sums);
#define SORN_SUM_KERNEL_DECL(t) SORN_STATS_CHANNELS(SORN_SUM_KERNEL_DECL1, t)
SORN_SUM_TYPES(SORN_SUM_KERNEL_DECL)
#undef SORN_SUM_KERNEL_DECL
#undef SORN_SUM_KERNEL_DECL1

/* ---------------- Minimum and maximum ----------------
 * The smallest and largest value of each channel of a region, and where
 * they first occur. Rows and pixels are walked in address order; an
 * extreme is replaced only by a strictly better value, so ties go to the
 * first occurrence. f32 NaN never compares (it is passed over), except as
 * the first element, which then stays both extremes. The walk ends early
 * once the extremes have reached both ends of the type (0 and 255 for u8,
 * the s16 and s32 limits, +-3.4028235e38 for f32). */
#define SORN_TAG_MIMA SORN_FOURCC('m', 'i', 'm', 'a')
#define SORN_TAG_MIMX SORN_FOURCC('m', 'i', 'm', 'x')

/* One extreme of one channel: the kernel fills ivalue (integer types) or
 * fvalue (f32), the dispatcher the other; row is the row of the region, col
 * the pixel within it. Six 32-bit cells. */
typedef struct SornMinmaxEntry {
  int32_t ivalue;
  float fvalue;
  int32_t unused0;
  int32_t row;
  int32_t col;
  int32_t unused1;
} SornMinmaxEntry;

/* `what`, in: bit 0 asks for the minimum's column, bit 1 for the maximum's,
 * bit 2 for positions at all; the entries set a word without any of the
 * three to 3 (both values, no positions: row and col 0). Without bit 2 the
 * positions are those of the start; with it, row is where the extreme
 * first occurs, and col too for the extremes whose bit is set (0 for the
 * other). 196 bytes. */
typedef struct SornMinmaxRec {
  uint32_t what;
  SornMinmaxEntry min[4];
  SornMinmaxEntry max[4];
} SornMinmaxRec;
#define SORN_MINMAX_MINCOL    1u
#define SORN_MINMAX_MAXCOL    2u
#define SORN_MINMAX_POSITIONS 4u

/* Under a mask the walk starts at the first selected pixel, which is also
 * the position of both extremes until a better value comes; unselected
 * pixels count as its value. Only one-channel images are searched under a
 * mask (SORN_ENOTSUP otherwise); a mask that selects nothing answers
 * SORN_ENOSPC with the record as it was. */
SornStatus SornMinmax(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *srcRoi,
                      SornMinmaxRec *res);
SornStatus SornMinmaxEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                        const SornVolume *srcRoi, const SornVolume *maskSite, SornMinmaxRec *res);
SornStatus SornTGAminmax(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0);
SornStatus SornTGAminmaxEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                           int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                           int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                           int32_t *strides1);
SornStatus sorna_minmax(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, const void *base, const int32_t *origin,
                        const int32_t *strides, SornMinmaxRec *res);
SornStatus sorna_minmax_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t type, const void *base, const int32_t *origin,
                           const int32_t *strides, uint32_t mtype, const void *mbase,
                           const int32_t *morigin, const int32_t *mstrides, SornMinmaxRec *res);
/* Dispatchers: after the kernel, for each channel selected by flag bits
 * 4-7 (0: all) and each extreme whose column bit is set in what, the other
 * value cell: an f32 value rounded to nearest into ivalue, an integer
 * converted to float into fvalue (so an s32 beyond 2^24 is float-rounded
 * there). */
SornStatus sorna__minmax(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, const void *src, const int32_t *strides,
                         SornMinmaxRec *res);
SornStatus sorna__minmax_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t type, const void *src, const int32_t *strides,
                            const void *mask, const int32_t *mstrides, SornMinmaxRec *res);

typedef SornStatus (*SornMinmaxKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                       const int32_t *dims, const void *src,
                                       const int32_t *strides, SornMinmaxRec *res);
typedef SornStatus (*SornMinmaxXmKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                         const int32_t *dims, const void *src,
                                         const int32_t *strides, const uint8_t *mask,
                                         const int32_t *mstrides, SornMinmaxRec *res);
SornMinmaxKernel sorna__minmaxfun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornMinmaxXmKernel sorna__minmaxfunxm_imp(uint32_t chword, SornElemType type,
                                          SornStatus *status);

#define SORN_MINMAX_TYPES(X) X(u8) X(s16) X(s32) X(f32)
#define SORN_MINMAX_KERNEL_DECL1(c, t)                                                       \
  SornStatus sorna__minmax_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,              \
                                      const int32_t *dims, const void *src,                \
                                      const int32_t *strides, SornMinmaxRec *res);         \
  SornStatus sorna__minmax_xm_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,           \
                                         const int32_t *dims, const void *src,             \
                                         const int32_t *strides, const uint8_t *mask,      \
                                         const int32_t *mstrides, SornMinmaxRec *res);
#define SORN_MINMAX_KERNEL_DECL(t) SORN_STATS_CHANNELS(SORN_MINMAX_KERNEL_DECL1, t)
SORN_MINMAX_TYPES(SORN_MINMAX_KERNEL_DECL)
#undef SORN_MINMAX_KERNEL_DECL
#undef SORN_MINMAX_KERNEL_DECL1

/* Value ranges of an image for the conversions, one SornVrng per channel
 * selected by flag bits 4-7 (0: all). compute measures: the minimum and
 * maximum as floats, widened (so an s32 range is float-rounded). adjust
 * completes what a caller only partly gave: a NaN lo becomes 0 to the
 * type's top (255 for u8, s16, s32, else 1), a finite lo not above hi is
 * saturated to the type, and an infinite lo or one above hi is measured. */
SornStatus sorna_compute_vrange(SornXE *xe, SornFlags flags, SornDimPack pack,
                                const int32_t *dims, uint32_t type, const void *base,
                                const int32_t *origin, const int32_t *strides,
                                SornVrng *vranges);
SornStatus sorna_compute_vrange_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                                   const int32_t *dims, uint32_t type, const void *base,
                                   const int32_t *origin, const int32_t *strides,
                                   uint32_t mtype, const void *mbase, const int32_t *morigin,
                                   const int32_t *mstrides, SornVrng *vranges);
SornStatus sorna_adjust_vrange(SornXE *xe, SornFlags flags, SornDimPack pack,
                               const int32_t *dims, uint32_t type, const void *base,
                               const int32_t *origin, const int32_t *strides,
                               SornVrng *vranges);
SornStatus sorna_adjust_vrange_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                                  const int32_t *dims, uint32_t type, const void *base,
                                  const int32_t *origin, const int32_t *strides, uint32_t mtype,
                                  const void *mbase, const int32_t *morigin,
                                  const int32_t *mstrides, SornVrng *vranges);
SornStatus sorna__compute_vrange(SornXE *xe, SornFlags flags, SornDimPack pack,
                                 const int32_t *dims, uint32_t type, const void *src,
                                 const int32_t *strides, SornVrng *vranges);
SornStatus sorna__compute_vrange_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                                    const int32_t *dims, uint32_t type, const void *src,
                                    const int32_t *strides, const void *mask,
                                    const int32_t *mstrides, SornVrng *vranges);
SornStatus sorna__adjust_vrange(SornXE *xe, SornFlags flags, SornDimPack pack,
                                const int32_t *dims, uint32_t type, const void *src,
                                const int32_t *strides, SornVrng *vranges);
SornStatus sorna__adjust_vrange_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                                   const int32_t *dims, uint32_t type, const void *src,
                                   const int32_t *strides, const void *mask,
                                   const int32_t *mstrides, SornVrng *vranges);

/* ======================================================================
 * Resize
 * ====================================================================== */

/* Nearest-neighbour resizing. A factor is a destination extent over a
 * source extent, one double for each dimension other than channels,
 * outermost first: rows and columns at rank 3, planes, rows and columns at
 * rank 4. A factor within SORN_RESIZE_EPS of 0 is taken from the extents,
 * and one within SORN_RESIZE_EPS of 1 is exactly 1. Pixels move as opaque
 * units of 1, 4, 8, 12 or 16 bytes. */
#define SORN_TAG_RESZ SORN_FOURCC('r', 'e', 's', 'z')
#define SORN_RESIZE_EPS 1.1920928955078125e-7 /* 2^-23 */
/* The method codes, by the low four bits of the method argument: bit m set
 * means code m is accepted (0, 3, 4, 5, 6, 14, 15). Every one of them runs
 * nearest neighbour. */
#define SORN_RESIZE_METHODS 0xC079u
#define SORN_RESIZE_NN 0

/* dst and src (null: in place, src is dst) have the same element type and
 * channels; src has dst's rank, or rank 3 under a rank-4 dst, and dst's
 * planes or one. factors holds rank - 1 doubles (null: all from the
 * extents). SornEResize takes the source's region as a volume (null: the
 * site, or dstRoi when resizing in place); SornResize takes the point
 * srcSite (plane, row, column; null: the origin) where the source's region
 * starts. */
SornStatus SornEResize(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcRoi, int32_t method,
                       const double *factors);
SornStatus SornResize(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornVolume *dstRoi, const int32_t *srcSite, int32_t method,
                      const double *factors);

/* What the entries hand the slice form: the method, the rank of the
 * operands' records, the factor block in cell order (plane, rows, columns;
 * cell 3 is 1.0) and both agreed boxes' sizes. */
typedef struct SornResizeArgs {
  int32_t method;
  int32_t rank;
  double factors[4];
  int32_t dstSize[4];
  int32_t srcSize[4];
} SornResizeArgs;

SornStatus SornTGAresize(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                         int32_t *strides1);
SornStatus sorna_resize(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dstDims,
                        const int32_t *srcDims, uint32_t type, void *dstBase,
                        const int32_t *dstOrigin, const int32_t *dstStrides, const void *srcBase,
                        const int32_t *srcOrigin, const int32_t *srcStrides, int32_t method,
                        const double *factors);
/* Layer 3. dstDims or srcDims may be null: that side's extents come from
 * the other's and the factors. factors has one cell per dimension but the
 * channels (null: from the extents). */
SornStatus sorna__resize(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dstDims,
                         const int32_t *srcDims, uint32_t type, void *dst,
                         const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                         int32_t method, const double *factors);
SornStatus sorna__resize_nn(SornXE *xe, SornFlags flags, SornDimPack pack,
                            const int32_t *dstDims, const int32_t *srcDims, uint32_t type,
                            void *dst, const int32_t *dstStrides, const void *src,
                            const int32_t *srcStrides, const double *factors);

/* Factors from extents: out[i] = dstDims[i] / srcDims[i], snapped to 1.0.
 * The S form gives all 1.0 when either extent array is null. Both return
 * out. */
double *sorn_mkreszf(int32_t n, double *out, const int32_t *dstDims, const int32_t *srcDims);
double *sorn_mkreszfS(int32_t n, double *out, const int32_t *dstDims, const int32_t *srcDims);
/* Given factors settled: one near 0 is taken from the extents, one near 1
 * is 1.0. Answers how many given factors leave the destination extent
 * larger than the scaled source one. The S form, with an extent array
 * null, makes factors near 0 or 1 exactly 1.0 and answers 0. */
int32_t sorn_fixreszf(int32_t n, double *out, const double *factors, const int32_t *dstDims,
                      const int32_t *srcDims);
int32_t sorn_fixreszfS(int32_t n, double *out, const double *factors, const int32_t *dstDims,
                       const int32_t *srcDims);

/* The pixel classes: rows and columns of both sides, row steps and pixel
 * strides in bytes, the column and row factors. */
typedef SornStatus (*SornResizeNNProc)(SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst,
                                       int32_t dstStep, int32_t dstPixel, int32_t srcRows,
                                       int32_t srcCols, const void *src, int32_t srcStep,
                                       int32_t srcPixel, double fx, double fy);
SornStatus __sorna__swresize_nn(SornXE *xe, uint32_t type, int32_t dstRows, int32_t dstCols,
                                void *dst, int32_t dstStep, int32_t dstPixel, int32_t srcRows,
                                int32_t srcCols, const void *src, int32_t srcStep,
                                int32_t srcPixel, double fx, double fy);
SornResizeNNProc sorna__resize_nn_imp(uint32_t type, SornStatus *status);
SornStatus __sorna__resize_nn_u8(SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst,
                                 int32_t dstStep, int32_t dstPixel, int32_t srcRows,
                                 int32_t srcCols, const void *src, int32_t srcStep,
                                 int32_t srcPixel, double fx, double fy);
SornStatus __sorna__resize_nn_s16(SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst,
                                  int32_t dstStep, int32_t dstPixel, int32_t srcRows,
                                  int32_t srcCols, const void *src, int32_t srcStep,
                                  int32_t srcPixel, double fx, double fy);
SornStatus __sorna__resize_nn_s32(SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst,
                                  int32_t dstStep, int32_t dstPixel, int32_t srcRows,
                                  int32_t srcCols, const void *src, int32_t srcStep,
                                  int32_t srcPixel, double fx, double fy);

/* The step table: one byte per destination pixel, the distance in source
 * pixels (times pixelStep) from the column of the pixel before, the first
 * from column 0; four to a 32-bit word, low byte first; a step above 255
 * wraps. After the last word stand a word 0 and a word with the destination
 * width. make takes it from xe, 64-byte aligned, with room for the
 * destination width (bytes) plus 12 bytes, and answers null when xe has no
 * room; the caller gives it back with SornXEfreea. */
uint32_t *__sorna_rsz_nn__make_offtab1x4(SornXE *xe, int32_t bytes, int32_t srcWidth,
                                         int32_t pixelStep, double fx);
uint32_t *__sorna_rsz_nn__init_offtab1x4(uint32_t *table, int32_t dstWidth, int32_t srcWidth,
                                         int32_t pixelStep, double fx);

/* Row kernels: every destination row from its source row, through the
 * step table offtab (null: the kernel makes its own from xe). Steps are
 * bytes between rows; pixels are the kernel's unit. All kernels of a unit
 * give the same result and differ in how far ahead and how much they
 * prefetch; the selectors of a unit have the same shape and choose among
 * them by fx and the source width. */
typedef SornStatus (*SornResizeRowKernel)(SornXE *xe, int32_t dstRows, int32_t dstCols,
                                          void *dst, int32_t dstStep, int32_t srcRows,
                                          int32_t srcCols, const void *src, int32_t srcStep,
                                          double fx, double fy, const uint32_t *offtab);

/* The units: class token and bytes per pixel. */
#define SORN_RESIZE_NN_UNITS(X) X(c1w8, 1) X(c1w32, 4) X(c2w32, 8) X(c3w32, 12) X(c4w32, 16)

/* The catalogue of row kernels, __sorna__resize_nn_<unit><name>: unit,
 * name, destination pixels per round, lines of the source row and of the
 * next source row prefetched per round, whether every source pixel of the
 * round is prefetched too, the alignment the prefetch address is rounded
 * down to (0: none), the prefetch distance in bytes, and whether a round
 * loads all its pixels before it stores any. */
#define SORN_RESIZE_NN_KERNELS(X)                               \
  X(c1w8, L1_00, 1, 0, 0, 0, 0, 128, 0)                         \
  X(c1w8, L4_00, 4, 0, 0, 0, 0, 128, 0)                         \
  X(c1w8, L16_10, 16, 1, 0, 0, 0, 128, 0)                       \
  X(c1w8, L16_11, 16, 1, 1, 0, 0, 128, 0)                       \
  X(c1w8, L16_21_prfm128, 16, 2, 1, 0, 0, 128, 0)               \
  X(c1w8, L16_21_prfm512, 16, 2, 1, 0, 0, 512, 0)               \
  X(c1w8, L16_21a128_prfm512, 16, 2, 1, 0, 128, 512, 0)         \
  X(c1w8, L16_22a128_prfm512, 16, 2, 2, 0, 128, 512, 0)         \
  X(c1w8, L16_40_prfm128, 16, 4, 0, 0, 0, 128, 0)               \
  X(c1w8, L16_42_prfm128, 16, 4, 2, 0, 0, 128, 0)               \
  X(c1w8, L16_42_prfm512, 16, 4, 2, 0, 0, 512, 0)               \
  X(c1w8, L16_42_prfm768, 16, 4, 2, 0, 0, 768, 0)               \
  X(c1w8, L16_44_prfm128, 16, 4, 4, 0, 0, 128, 0)               \
  X(c1w32, L4_00, 4, 0, 0, 0, 0, 128, 0)                        \
  X(c1w32, L4_40, 4, 4, 0, 0, 0, 128, 0)                        \
  X(c1w32, L4_40a128, 4, 4, 0, 0, 128, 128, 0)                  \
  X(c1w32, L4_142, 4, 4, 2, 1, 0, 128, 0)                       \
  X(c1w32, L4_142a128, 4, 4, 2, 1, 128, 128, 0)                 \
  X(c1w32, L4v2_40a256, 4, 4, 0, 0, 256, 128, 1)                \
  X(c1w32, L8_40, 8, 4, 0, 0, 0, 128, 0)                        \
  X(c1w32, L8_40a128, 8, 4, 0, 0, 128, 128, 0)                  \
  X(c1w32, L8_122, 8, 2, 2, 1, 0, 128, 0)                       \
  X(c1w32, L8_122a128, 8, 2, 2, 1, 128, 128, 0)                 \
  X(c1w32, L12_20, 12, 2, 0, 0, 0, 128, 0)                      \
  X(c1w32, L12_40a128, 12, 4, 0, 0, 128, 128, 0)                \
  X(c1w32, L12_121, 12, 2, 1, 1, 0, 128, 0)                     \
  X(c1w32, L12_122a128, 12, 2, 2, 1, 128, 128, 0)               \
  X(c1w32, L16_20, 16, 2, 0, 0, 0, 128, 0)                      \
  X(c1w32, L16_20a128, 16, 2, 0, 0, 128, 128, 0)                \
  X(c1w32, L16_111, 16, 1, 1, 1, 0, 128, 0)                     \
  X(c1w32, L16_121, 16, 2, 1, 1, 0, 128, 0)                     \
  X(c1w32, L16_122a128, 16, 2, 2, 1, 128, 128, 0)               \
  X(c2w32, L4_00, 4, 0, 0, 0, 0, 128, 0)                        \
  X(c2w32, L4_20a64, 4, 2, 0, 0, 64, 128, 0)                    \
  X(c2w32, L4_40a128, 4, 4, 0, 0, 128, 128, 0)                  \
  X(c2w32, L4_40a256, 4, 4, 0, 0, 256, 128, 0)                  \
  X(c3w32, L4_00, 4, 0, 0, 0, 0, 128, 0)                        \
  X(c3w32, L4_40, 4, 4, 0, 0, 0, 128, 0)                        \
  X(c3w32, L4_40a128, 4, 4, 0, 0, 128, 128, 0)                  \
  X(c3w32, L4_40a256, 4, 4, 0, 0, 256, 128, 0)                  \
  X(c4w32, L4_00, 4, 0, 0, 0, 0, 128, 0)                        \
  X(c4w32, L4_20a64, 4, 2, 0, 0, 64, 128, 0)                    \
  X(c4w32, L4_40a128, 4, 4, 0, 0, 128, 128, 0)                  \
  X(c4w32, L4_40a256, 4, 4, 0, 0, 256, 128, 0)

/* The c1w32 families that choose among their kernels themselves, and the
 * kernels each chooses from, in the order of its choice index. */
#define SORN_RESIZE_NN_C1W32_FAMILIES(X) X(L4) X(L8) X(L12) X(L16)
#define SORN_RESIZE_NN_C1W32_L4(X) X(L4_00) X(L4_40) X(L4_40a128) X(L4_142) X(L4_142a128) X(L4v2_40a256)
#define SORN_RESIZE_NN_C1W32_L8(X) X(L8_40) X(L8_40a128) X(L8_122) X(L8_122a128)
#define SORN_RESIZE_NN_C1W32_L12(X) X(L12_20) X(L12_40a128) X(L12_121) X(L12_122a128)
#define SORN_RESIZE_NN_C1W32_L16(X) X(L16_20) X(L16_20a128) X(L16_111) X(L16_121) X(L16_122a128)

#define SORN_RESIZE_ROW_KERNEL_DECL(name)                                                    \
  SornStatus name(SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst, int32_t dstStep, \
                  int32_t srcRows, int32_t srcCols, const void *src, int32_t srcStep,        \
                  double fx, double fy, const uint32_t *offtab);
#define SORN_RESIZE_NN_KERNEL_DECL(unit, name, ...) \
  SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_##unit##name)
SORN_RESIZE_NN_KERNELS(SORN_RESIZE_NN_KERNEL_DECL)
#undef SORN_RESIZE_NN_KERNEL_DECL
#define SORN_RESIZE_NN_FAMILY_DECL(fam) SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c1w32##fam)
SORN_RESIZE_NN_C1W32_FAMILIES(SORN_RESIZE_NN_FAMILY_DECL)
#undef SORN_RESIZE_NN_FAMILY_DECL
/* The selectors of each unit. */
SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c1w8)
SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c1w32)
SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c1w32_dfl)
SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c2w32)
SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c3w32)
SORN_RESIZE_ROW_KERNEL_DECL(__sorna__resize_nn_c4w32)
#undef SORN_RESIZE_ROW_KERNEL_DECL

/* The c1w32 choice: 0 for the default kernel (fx above 1.002), 1 for
 * destinations narrower than 5 pixels, else the family in the low four
 * bits (4, 8, 12 or 15 for L16) and its kernel's choice index above them. */
int32_t __sorna__nn_c1w32_algsel(int32_t dstWidth, int32_t srcWidth, double fx);
/* The kernel each selector runs for these extents and factors, for tests
 * and benchmarks that look at the choice itself. units is 2, 3 or 4 for
 * c2w32, c3w32, c4w32. */
SornResizeRowKernel __sorna__nn_c1w8_pick(int32_t dstWidth, int32_t srcWidth, int32_t srcRows,
                                          double fx, double fy);
SornResizeRowKernel __sorna__nn_c1w32_pick(int32_t dstWidth, int32_t srcWidth, double fx);
SornResizeRowKernel __sorna__nn_cNw32_pick(int32_t units, int32_t dstWidth, int32_t srcWidth,
                                           double fx);

/* ======================================================================
 * Neighbourhood filters
 * ====================================================================== */

/* Real pixels around a region: none may be read (the region alone is
 * offered), or only those inside the source's own site (not its parent's). */
#define SORN_F_NOMARGIN   0x1000000ull
#define SORN_F_SITEMARGIN 0x2000000ull

/* ---------------- Window and border shapes ----------------
 * Records of four cells like every vector of SornArray: depth, rows,
 * columns, channels; cell 3 is always 0. A count n given with a record
 * names the cells that take part: n above 3 acts as 3, and below 3 the
 * last n of the three spatial cells (n = 2: rows and columns). The short
 * vectors given with it (extents, boxes) hold just those n cells, in the
 * same order, like the vectors that __sorn_dims__$gv widens. */

/* A window: anchor is the window cell on the output pixel (negative counts
 * back from the end); size its extent, where 1 is no extent, a negative
 * value the region's extent plus that value, and 0 a size not given. */
typedef struct SornSeShape {
  int32_t anchor[4];
  int32_t size[4];
} SornSeShape;

/* A border around a block: lo the cells before it as a negative offset
 * (-lo cells), hi the cells after it; fill the value of each channel for
 * const-border. */
typedef struct SornBrShape {
  int32_t lo[4];
  int32_t hi[4];
  double fill[4];
} SornBrShape;

/* A border request: a border kind (reflect101 when the request is null)
 * and, for const-border, the value of each channel. */
typedef struct SornBorderSpec {
  uint32_t kind;
  double value[4];
} SornBorderSpec;

/* The extents around a source: its own site and its parent's. */
typedef struct SornSites {
  SornVolume site;
  SornVolume parsite;
} SornSites;

/* Normalises a window against the region's extents dims: relative sizes
 * resolve, sizes that come to 0 or less become 1 with anchor 0, anchors
 * come into the window, and a window of 1 along every used row and column
 * cell becomes 5 by 5 with anchor 2, 2. Always 1. The copying form copies
 * se to out first (a null se: out as it is). */
int sorn_seshape__adjust_$gv$I(SornSeShape *se, int32_t n, const int32_t *dims);
int sorn_seshape__adjust_$gv(SornSeShape *out, const SornSeShape *se, int32_t n,
                             const int32_t *dims);
/* anchor = size / 2 in cells 0 to min(n, 3) - 1, counted from the front. */
SornSeShape *sorn_seshape_rstanchor_$gn(SornSeShape *se, int32_t n);

/* The border a window needs: lo = -anchor, hi = size - anchor - 1. */
SornBrShape *__sorn_brshape__$se(SornBrShape *br, const SornSeShape *se);
/* The border between a needed box and the box that may be read: lo =
 * needO - haveO, hi = needO + needS - (haveO + haveS). */
SornBrShape *sorn_brshape__compute_$gv(SornBrShape *br, int32_t n, const int32_t *needO,
                                       const int32_t *needS, const int32_t *haveO,
                                       const int32_t *haveS);
/* Fits a border into the room outer - inner: no room (or less) gives lo =
 * -room, hi = 0; a room smaller than hi - lo shares it in proportion (lo =
 * rint(f32(lo * room) / f32(hi - lo)), hi = room + lo). 0 when a cell ends
 * with lo above 0 or hi below 0. The origins take no part. */
int sorn_brshape__adjust_$gv$I(SornBrShape *br, int32_t n, const int32_t *outerO,
                               const int32_t *outer, const int32_t *innerO, const int32_t *inner);
int sorn_brshape__adjust_$gv(SornBrShape *out, const SornBrShape *br, int32_t n,
                             const int32_t *outerO, const int32_t *outer, const int32_t *innerO,
                             const int32_t *inner);

/* Extents grown or shrunk by a window (size - 1) or a border (hi - lo);
 * the forms with an output take a null dims as the output itself. */
int32_t *sorn_volume__widen_$I$se(int32_t n, int32_t *dims, const SornSeShape *se);
int32_t *sorn_volume__widen_$se(int32_t n, int32_t *out, const int32_t *dims,
                                const SornSeShape *se);
int32_t *sorn_volume__narrow_$I$se(int32_t n, int32_t *dims, const SornSeShape *se);
int32_t *sorn_volume__narrow_$se(int32_t n, int32_t *out, const int32_t *dims,
                                 const SornSeShape *se);
int32_t *sorn_volume__widen_$I$br(int32_t n, int32_t *dims, const SornBrShape *br);
int32_t *sorn_volume__widen_$br(int32_t n, int32_t *out, const int32_t *dims,
                                const SornBrShape *br);
int32_t *sorn_volume__narrow_$I$br(int32_t n, int32_t *dims, const SornBrShape *br);
int32_t *sorn_volume__narrow_$br(int32_t n, int32_t *out, const int32_t *dims,
                                 const SornBrShape *br);
/* The same under the name some callers know it by. */
int32_t *sorn_volume__narrow_br(int32_t n, int32_t *out, const int32_t *dims,
                                const SornBrShape *br);

/* The box a window reads around a region, need (the region (origin, size),
 * or site when size is null, widened by the window), and the part of it
 * that may be read, avail: the region alone under SORN_F_NOMARGIN (the
 * answer is then 0), else site under SORN_F_SITEMARGIN or parsite, cut to
 * need. 1 when avail is all of need. A null site or parsite offers the
 * region alone. The block form copies and cuts all four cells (a null roi
 * is site) and widens and compares the three spatial ones. */
int sorn__compute_roi_$se(SornFlags flags, int32_t n, int32_t *availO, int32_t *availS,
                          int32_t *needO, int32_t *needS, const int32_t *origin,
                          const int32_t *size, const SornSeShape *se, const SornVolume *site,
                          const SornVolume *parsite);
int sorn_compute_roi_$se(SornVolume *avail, SornVolume *need, SornFlags flags,
                         const SornVolume *roi, const SornSeShape *se, const SornVolume *site,
                         const SornVolume *parsite);

/* ---------------- Filter frame ----------------
 * Every neighbourhood filter reads a window around each output pixel. The
 * frame decides once per call where the pixels outside the region come
 * from: from the source itself or its parent when they are real (unless
 * SORN_F_NOMARGIN, or outside the source's own site under
 * SORN_F_SITEMARGIN), otherwise from a bordered copy in scratch memory,
 * made with reflect101. Kernels never test an edge.
 *
 * Filter kinds, read as one byte (256 is 0): */
#define SORN_FILTER_NONE     0   /* a copy */
#define SORN_FILTER_MIN      3
#define SORN_FILTER_MAX      4
#define SORN_FILTER_BOX      5
#define SORN_FILTER_MEDIAN   6   /* a name without a routine: SORN_ENOTIMP */
#define SORN_FILTER_CLOSE    105
#define SORN_FILTER_OPEN     106
#define SORN_FILTER_BOTHAT   107
#define SORN_FILTER_TOPHAT   108
#define SORN_FILTER_GRADIENT 109 /* SORN_ENOTIMP */
#define SORN_TAG_FILT SORN_FOURCC('f', 'i', 'l', 't')

/* The block that travels with a slice of a filter call. */
typedef struct SornFilterArgs {
  uint32_t kind;
  const SornSeShape *se;
  const SornBorderSpec *border;
  const SornSites *sites;
} SornFilterArgs;

/* dst = the filter of kind over src, on the region dst and src agree on
 * (dstRoi rules its size, srcSite offers a start). A null src filters dst in
 * place. The window se is normalised against that region (a null se is the
 * 5 by 5 default); the border is reflect101. Box, minimum and maximum take
 * one channel of u8, s16, s32 or f32; three or four channels are
 * SORN_ENOTSUP, other types SORN_EINVAL. A 4-dimensional dst is filtered
 * plane by plane, each from its own source plane or from the source's only
 * plane. */
SornStatus SornFilter(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                      const SornSeShape *se);
/* The slice form: args is a SornFilterArgs; different types are invalid. */
SornStatus SornTGAfilter(SornXE *xe, SornFlags flags, void *args, SornDimPack pack, int32_t *sizes,
                         uint32_t dstType, void *dst, int32_t *dstOrigin, int32_t *dstStrides,
                         uint32_t srcType, void *src, int32_t *srcOrigin, int32_t *srcStrides);
/* Layer 2. The plain form trusts its caller that the window's margin exists;
 * the edge-handling form takes a border request (null: reflect101) and the
 * sites around the source in data coordinates (null, or an empty box: the
 * region alone). */
SornStatus sorna_filter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, int32_t kind, const SornSeShape *se);
SornStatus sorna_efilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se,
                         const SornBorderSpec *border, const SornSites *sites);
/* Layer 3: by kind, without and with the edge decision (sites relative to
 * the region's first pixel). */
SornStatus sorna__filter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se);
SornStatus sorna__efilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                          const int32_t *srcStrides, int32_t kind, const SornSeShape *se,
                          const SornBorderSpec *border, const SornSites *sites);
#define SORN_FILTER_KIND_DECL(name)                                                           \
  SornStatus sorna__filter_##name(SornXE *xe, SornFlags flags, SornDimPack pack,             \
                                  const int32_t *sizes, uint32_t type, void *dst,            \
                                  const int32_t *dstStrides, const void *src,                \
                                  const int32_t *srcStrides, const SornSeShape *se);
SORN_FILTER_KIND_DECL(box)
SORN_FILTER_KIND_DECL(min)
SORN_FILTER_KIND_DECL(max)
SORN_FILTER_KIND_DECL(open)
SORN_FILTER_KIND_DECL(close)
SORN_FILTER_KIND_DECL(tophat)
SORN_FILTER_KIND_DECL(bothat)
#undef SORN_FILTER_KIND_DECL

/* The kernels of every filter table: n cells of sizes (an optional row
 * count, the columns, the channels), the window normalised, the source at
 * the region's first pixel with the whole margin readable around it. A
 * separable or masked window is handed over as the SornSeShape it begins
 * with. */
typedef SornStatus (*SornFilterKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                       const int32_t *sizes, void *dst,
                                       const int32_t *dstStrides, const void *src,
                                       const int32_t *srcStrides, const SornSeShape *se);
/* The six tables, by channel word (1, 3, and 4 or 11 for four channels) and
 * element type (u8, s16, s32, f32); any other pair is SORN_EINVAL. */
SornFilterKernel sorna__boxfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornFilterKernel sorna__minfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornFilterKernel sorna__maxfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornFilterKernel sorna__sepfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornFilterKernel sorna__dilatefun_imp(uint32_t chword, SornElemType type, SornStatus *status);
SornFilterKernel sorna__erodefun_imp(uint32_t chword, SornElemType type, SornStatus *status);

/* The types and channel forms of the filter tables. */
#define SORN_FILTER_TYPES(X) X(u8) X(s16) X(s32) X(f32)
#define SORN_FILTER_CHANNELS(X, t) X(1, t) X(3, t) X(4, t)
/* The kernel shapes, columns by rows. */
#define SORN_BOXFILTER_SHAPES(X, t) X(t, 2x1) X(t, 4x1) X(t, Nx1) X(t, 1x2) X(t, 2x2) X(t, NxM)
#define SORN_MINMAXFILTER_SHAPES(X, t)                                                        \
  X(t, 2x1) X(t, 3x1) X(t, 4x1) X(t, Nx1) X(t, 1x2) X(t, 1x3) X(t, 1xN) X(t, 2x2) X(t, 2xN)   \
  X(t, 3xN) X(t, NxM)

#define SORN_FILTER_KERNEL_ARGS                                                               \
  (SornXE * xe, SornFlags flags, int32_t n, const int32_t *sizes, void *dst,                 \
   const int32_t *dstStrides, const void *src, const int32_t *srcStrides, const SornSeShape *se)
/* Box, minimum and maximum by channel form and type: sorna__boxfilter_c1_u8 ...
 * (the three- and four-channel ones answer SORN_ENOTSUP), and their kernels
 * _T_sorna__boxfilter_c1_u8_NxM ... */
#define SORN_FLAT_DISPATCH_DECL1(c, t)                                                        \
  SornStatus sorna__boxfilter_c##c##_##t SORN_FILTER_KERNEL_ARGS;                             \
  SornStatus sorna__minfilter_c##c##_##t SORN_FILTER_KERNEL_ARGS;                             \
  SornStatus sorna__maxfilter_c##c##_##t SORN_FILTER_KERNEL_ARGS;
#define SORN_FLAT_DISPATCH_DECL(t) SORN_FILTER_CHANNELS(SORN_FLAT_DISPATCH_DECL1, t)
SORN_FILTER_TYPES(SORN_FLAT_DISPATCH_DECL)
#undef SORN_FLAT_DISPATCH_DECL
#undef SORN_FLAT_DISPATCH_DECL1
#define SORN_BOX_KERNEL_DECL1(t, shape)                                                       \
  SornStatus _T_sorna__boxfilter_c1_##t##_##shape SORN_FILTER_KERNEL_ARGS;
#define SORN_MINMAX_KERNEL_DECL1(t, shape)                                                    \
  SornStatus _T_sorna__minfilter_c1_##t##_##shape SORN_FILTER_KERNEL_ARGS;                    \
  SornStatus _T_sorna__maxfilter_c1_##t##_##shape SORN_FILTER_KERNEL_ARGS;
#define SORN_FLAT_KERNEL_DECL(t)                                                              \
  SORN_BOXFILTER_SHAPES(SORN_BOX_KERNEL_DECL1, t) SORN_MINMAXFILTER_SHAPES(SORN_MINMAX_KERNEL_DECL1, t)
SORN_FILTER_TYPES(SORN_FLAT_KERNEL_DECL)
#undef SORN_FLAT_KERNEL_DECL
#undef SORN_BOX_KERNEL_DECL1
#undef SORN_MINMAX_KERNEL_DECL1

/* ---------------- Morphology ----------------
 * Erosion (the smallest value of a window), dilation (the largest) and
 * their chains: opening (erosion, then dilation of its result), closing
 * (the other way), top-hat (src - opening) and bottom-hat (closing - src).
 * With a rectangle they are the filter kinds SORN_FILTER_MIN, _MAX and 105
 * to 108; with a mask of any shape they are SornMorphop.
 *
 * Morphological kinds, read as their low four bits: */
#define SORN_MORPH_NONE     0 /* a copy */
#define SORN_MORPH_ERODE    3
#define SORN_MORPH_DILATE   4
#define SORN_MORPH_CLOSE    5
#define SORN_MORPH_OPEN     6
#define SORN_MORPH_BOTHAT   7
#define SORN_MORPH_TOPHAT   8
#define SORN_MORPH_GRADIENT 9 /* SORN_ENOTIMP */
#define SORN_TAG_MRPH SORN_FOURCC('m', 'r', 'p', 'h')

/* A structuring element: the anchor (the mask cell on the output pixel,
 * anchor[1] its row, anchor[2] its column), then the mask, whose dims lie
 * where a SornSeShape has its size, so that a SornStrel serves wherever a
 * window is taken. The mask's rows (dims[1]) and columns (dims[2]) are the
 * window; strides[1] steps between mask rows; its first cell is at
 * data + offset. A mask cell counts when its byte is non-zero (masks are
 * meant to be 0 or 255). The element is flat: mask values are never added
 * to the image, and the mask is not reflected. A mask of all 255 is a
 * rectangle and runs as one. */
typedef struct SornStrel {
  int32_t anchor[4];
  SornArray mask;
} SornStrel;

/* dst = the morphological operation kind of src with the mask of strel. A
 * null strel, or one whose first mask cell is null, is a rectangle: kind 0
 * is SornCopy and the others go to SornFilter with strel as its window
 * (kinds 3 and 4 as they are, 5 to 9 as 105 to 109). Unlike SornFilter the
 * window is not normalised: SORN_EINVAL unless the mask has at least one
 * row and one column and the anchor lies in it; a 1 by 1 mask is SornCopy
 * whatever the kind, and so is kind 0. A given dstRoi must have the channel
 * count of dst in size[3]. Three and four channels run, by elements: the
 * window walks adjacent elements of a row, across channels, and only the
 * first columns elements of each row are written. */
SornStatus SornMorphop(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                       const SornStrel *strel);
/* The slice form: args is a SornFilterArgs whose se is the SornStrel. */
SornStatus SornTGAmorphop(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                          int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                          int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,
                          int32_t *srcStrides);
/* Layers 2 and 3 as those of the filter, with strel in place of se. */
SornStatus sorna_morphop(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind, const SornStrel *strel);
SornStatus sorna_emorphop(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                          const int32_t *srcStrides, int32_t kind, const SornStrel *strel,
                          const SornBorderSpec *border, const SornSites *sites);
SornStatus sorna__morphop(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                          const int32_t *srcStrides, int32_t kind, const SornStrel *strel);
SornStatus sorna__emorphop(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                           uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                           const int32_t *srcStrides, int32_t kind, const SornStrel *strel,
                           const SornBorderSpec *border, const SornSites *sites);
/* Erosion and dilation with a mask (the table's dispatcher for the channel
 * word and type), and the chains with a mask. */
#define SORN_MORPHOP_KIND_DECL(name)                                                          \
  SornStatus sorna__morphop_##name(SornXE *xe, SornFlags flags, SornDimPack pack,            \
                                   const int32_t *sizes, uint32_t type, void *dst,           \
                                   const int32_t *dstStrides, const void *src,               \
                                   const int32_t *srcStrides, const SornStrel *strel);
SORN_MORPHOP_KIND_DECL(erode)
SORN_MORPHOP_KIND_DECL(dilate)
SORN_MORPHOP_KIND_DECL(open)
SORN_MORPHOP_KIND_DECL(close)
SORN_MORPHOP_KIND_DECL(tophat)
SORN_MORPHOP_KIND_DECL(bothat)
#undef SORN_MORPHOP_KIND_DECL

/* The masked kernels' shapes, columns by rows. Those of the first list
 * have a routine per channel form, the anchor's column scaled by the
 * channel count; those of the second are one routine, named with c4, that
 * the c1 and c3 names forward to, stepping back by the anchor alone. */
#define SORN_MORPH_OWN_SHAPES(X, c, t) X(c, t, NxM) X(c, t, 2x2) X(c, t, 2xN) X(c, t, 3xN)
#define SORN_MORPH_SHARED_SHAPES(X, c, t)                                                     \
  X(c, t, Nx1) X(c, t, 1xN) X(c, t, 2x1) X(c, t, 1x2) X(c, t, 3x1) X(c, t, 1x3)
/* The dispatchers sorna__dilate_c1_u8 ... and sorna__erode_c1_u8 ..., with
 * the strel handed over as the SornSeShape it begins with; a mask of all
 * 255 goes to the maximum or minimum filter of the same form. */
#define SORN_MORPH_KERNEL_DECL1(c, t, shape)                                                  \
  SornStatus _T_sorna__dilate_c##c##_##t##_##shape SORN_FILTER_KERNEL_ARGS;                   \
  SornStatus _T_sorna__erode_c##c##_##t##_##shape SORN_FILTER_KERNEL_ARGS;
#define SORN_MORPH_DECL1(c, t)                                                                \
  SornStatus sorna__dilate_c##c##_##t SORN_FILTER_KERNEL_ARGS;                                \
  SornStatus sorna__erode_c##c##_##t SORN_FILTER_KERNEL_ARGS;                                 \
  SORN_MORPH_OWN_SHAPES(SORN_MORPH_KERNEL_DECL1, c, t)                                        \
  SORN_MORPH_SHARED_SHAPES(SORN_MORPH_KERNEL_DECL1, c, t)
#define SORN_MORPH_DECL(t) SORN_FILTER_CHANNELS(SORN_MORPH_DECL1, t)
SORN_FILTER_TYPES(SORN_MORPH_DECL)
#undef SORN_MORPH_DECL
#undef SORN_MORPH_DECL1
#undef SORN_MORPH_KERNEL_DECL1

/* ---------------- Separable and Gaussian filters ----------------
 * A separable filter correlates each row with a row kernel and each column
 * with a column kernel of f64 coefficients (no reversal: output i is the
 * sum over t of kernel[t] * src[i - anchor + t]), summed in f64 in tap
 * order and rounded to nearest even into the element type (u8 and s16
 * saturate; s32 does not, what does not fit is 0x80000000; f32 narrows).
 * A window of more than one row and column runs in two passes through a
 * block of the element type, so integer images round twice. The Gaussian
 * filter makes both kernels from the window and optional sigmas and takes
 * the same path. One, three and four channels of u8, s16, s32 and f32;
 * three and four channels walk neighbouring elements of a row, not pixels. */
#define SORN_TAG_SEPF SORN_FOURCC('s', 'f', 'l', 't')

/* A window and its kernels: the column pass reads kernels[0] (size[1]
 * taps), the row pass kernels[1] (size[2] taps); kernels[2] is carried
 * along. A null kernel is the box along its axis. The arrays stay the
 * caller's and are only read. */
typedef struct SornSepShape {
  int32_t anchor[4];
  int32_t size[4];
  const double *kernels[3];
} SornSepShape;

/* The blocks that travel with a slice of a separable or Gaussian call. */
typedef struct SornSepFilterArgs {
  const SornSepShape *sep;
  const SornBorderSpec *border;
  const SornSites *sites;
} SornSepFilterArgs;
typedef struct SornGaussianFilterArgs {
  const SornSeShape *se;
  const double *sigmas;
  const SornBorderSpec *border;
  const SornSites *sites;
} SornGaussianFilterArgs;

/* dst = the separable filter of src, with the checks and the frame of
 * SornFilter; the window of sep is normalised against the region (a null
 * sep is the 5 by 5 box). */
SornStatus SornSepFilter(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const SornVolume *dstRoi, const SornVolume *srcSite,
                         const SornSepShape *sep);
/* dst = the Gaussian filter of src over the window se (null: 5 by 5).
 * sigmas: one per spatial axis, rows first for an image, 0 for a value not
 * given (filled in from its neighbours); null, or all 0, gives each axis
 * the sigma of its size, ((size - 1) * 0.5 - 1) * 0.3 + 0.8. The kernels
 * are made once per call, before any slicing. */
SornStatus SornGaussianFilter(SornXE *xe, SornFlags flags, const SornArray *dst,
                              const SornArray *src, const SornVolume *dstRoi,
                              const SornVolume *srcSite, const SornSeShape *se,
                              const double *sigmas);
/* The slice forms: args a SornSepFilterArgs or a SornGaussianFilterArgs;
 * different types are invalid. */
SornStatus SornTGAsepfilter(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                            int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                            int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,
                            int32_t *srcStrides);
SornStatus SornTGAgaussianfilter(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                                 int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                                 int32_t *dstStrides, uint32_t srcType, void *src,
                                 int32_t *srcOrigin, int32_t *srcStrides);
/* Layer 2, plain and edge-handling, as sorna_filter and sorna_efilter. */
SornStatus sorna_sepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                           uint32_t type, void *dst, const int32_t *dstOrigin,
                           const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                           const int32_t *srcStrides, const SornSepShape *sep);
SornStatus sorna_esepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstOrigin,
                            const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                            const int32_t *srcStrides, const SornSepShape *sep,
                            const SornBorderSpec *border, const SornSites *sites);
SornStatus sorna_gaussianfilter(SornXE *xe, SornFlags flags, SornDimPack pack,
                                const int32_t *sizes, uint32_t type, void *dst,
                                const int32_t *dstOrigin, const int32_t *dstStrides,
                                const void *src, const int32_t *srcOrigin,
                                const int32_t *srcStrides, const SornSeShape *se,
                                const double *sigmas);
SornStatus sorna_egaussianfilter(SornXE *xe, SornFlags flags, SornDimPack pack,
                                 const int32_t *sizes, uint32_t type, void *dst,
                                 const int32_t *dstOrigin, const int32_t *dstStrides,
                                 const void *src, const int32_t *srcOrigin,
                                 const int32_t *srcStrides, const SornSeShape *se,
                                 const double *sigmas, const SornBorderSpec *border,
                                 const SornSites *sites);
/* Layer 3: the separable dispatch without and with the edge decision, and
 * the Gaussian's, which make the kernels and go down the separable way. */
SornStatus sorna__sepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                            const int32_t *srcStrides, const SornSepShape *sep);
SornStatus sorna__esepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides,
                             const void *src, const int32_t *srcStrides, const SornSepShape *sep,
                             const SornBorderSpec *border, const SornSites *sites);
SornStatus sorna__filter_gaussian(SornXE *xe, SornFlags flags, SornDimPack pack,
                                  const int32_t *sizes, uint32_t type, void *dst,
                                  const int32_t *dstStrides, const void *src,
                                  const int32_t *srcStrides, const SornSeShape *se,
                                  const double *sigmas);
SornStatus sorna__efilter_gaussian(SornXE *xe, SornFlags flags, SornDimPack pack,
                                   const int32_t *sizes, uint32_t type, void *dst,
                                   const int32_t *dstStrides, const void *src,
                                   const int32_t *srcStrides, const SornSeShape *se,
                                   const double *sigmas, const SornBorderSpec *border,
                                   const SornSites *sites);
/* The sigma of each spatial axis of pack (n = (pack & 15) - 1 of them, their
 * sizes from cell (pack >> 4) & 15 of se->size on) into out; returns out. */
double *sorn_adjustgaussigmas(SornDimPack pack, double *out, const SornSeShape *se,
                              const double *sigmas);
/* The normalised Gaussian kernels of n axes, kernels[i] from the i-th cells
 * of anchors, sizes and sigmas; and one kernel of size taps, centred on the
 * anchor: k[t] = exp(-(d * d) / (2 sigma * sigma)), d = anchor - t, divided
 * by their sum (a size below 1 leaves k as it is). */
void sorn__computegauskernel(int32_t n, double *const *kernels, const int32_t *anchors,
                             const int32_t *sizes, const double *sigmas);
double *sorn__computegauskernel1(double *k, int32_t anchor, int32_t size, double sigma);

/* The separable kernels by channel form and type, sorna__sepfilter_c1_u8 ...,
 * and the shapes they choose from, columns by rows:
 * _T_sorna__sepfilter_c1_u8_3x1 ... (a window of one cell is a copy). */
#define SORN_SEPFILTER_SHAPES(X, c, t) \
  X(c, t, 3x1) X(c, t, 5x1) X(c, t, Nx1) X(c, t, 1x3) X(c, t, 1x5) X(c, t, 1xN) X(c, t, NxM)
#define SORN_SEP_KERNEL_DECL1(c, t, shape) \
  SornStatus _T_sorna__sepfilter_c##c##_##t##_##shape SORN_FILTER_KERNEL_ARGS;
#define SORN_SEP_DECL1(c, t)                                   \
  SornStatus sorna__sepfilter_c##c##_##t SORN_FILTER_KERNEL_ARGS; \
  SORN_SEPFILTER_SHAPES(SORN_SEP_KERNEL_DECL1, c, t)
#define SORN_SEP_DECL(t) SORN_FILTER_CHANNELS(SORN_SEP_DECL1, t)
SORN_FILTER_TYPES(SORN_SEP_DECL)
#undef SORN_SEP_DECL
#undef SORN_SEP_DECL1
#undef SORN_SEP_KERNEL_DECL1

/* ---------------- Relative box count ----------------
 * For each pixel of a u8 image, how many pixels of the box around it (the
 * pixel itself included) stand in the relation op to it: op is a SornCmpOp
 * whose low four bits are 3 (equal), 4 (less), 5 (less or equal), 6
 * (greater) or 7 (greater or equal), a neighbour p against the centre x.
 * The count is scaled by a power of two (shift below 0 rounds and shifts
 * right by -shift, above 0 shifts left) and saturated into a u8 or s16
 * destination. A sliding histogram per column keeps the cost per pixel
 * independent of the box's height. The relation and the reserved word
 * take the types of the comparison's operator and the matrix product's
 * reserved word; reserved is handed down and read by no kernel. */
/* Speed flags: values are binned (v >> q) to narrow the histograms. FAST
 * drops one bit of a range above 79 levels; FAST2 two bits of a range above
 * 79 levels and one of a range of 40 to 79. */
#define SORN_F_RANK_FAST  0x200000ull
#define SORN_F_RANK_FAST2 0x400000ull

/* dst = the count of src's box pixels in relation op to each pixel, on the
 * region dst and src agree on (dstRoi rules its size, srcSite offers a
 * start); a null src counts dst in place. box is normalised against that
 * region (null: 5 by 5, anchor 2, 2); vrange (or null) bounds src's values
 * for the one channel. Pixels outside the source are reflect101. */
SornStatus SornCountRelBox(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                           const SornVolume *dstRoi, const SornVolume *srcSite, SornCmpOp op,
                           const SornSeShape *box, const SornVrng *vrange, int32_t shift,
                           uint32_t reserved);
/* The block that travels with a slice of a relative box count: the
 * arguments after the regions, and the border request and sites of the
 * edge decision. */
typedef struct SornCountRelBoxArgs {
  SornCmpOp op;
  const SornSeShape *box;
  const SornVrng *vrange;
  int32_t shift;
  uint32_t reserved;
  const SornBorderSpec *border;
  const SornSites *sites;
} SornCountRelBoxArgs;

/* The slice form: args is the call's block of arguments (a
 * SornCountRelBoxArgs). */
SornStatus SornTGAcountrelbox(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                              int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                              int32_t *dstStrides, uint32_t srcType, void *src,
                              int32_t *srcOrigin, int32_t *srcStrides);
/* Layer 2: without and with the edge decision (border request and sites as
 * sorna_efilter takes them). */
SornStatus sorna_countrelbox(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t dstType, void *dst, const int32_t *dstOrigin,
                             const int32_t *dstStrides, uint32_t srcType, const void *src,
                             const int32_t *srcOrigin, const int32_t *srcStrides, SornCmpOp op,
                             const SornSeShape *box, const SornVrng *vrange, int32_t shift,
                             uint32_t reserved);
SornStatus sorna_ecountrelbox(SornXE *xe, SornFlags flags, SornDimPack pack,
                              const int32_t *sizes, uint32_t dstType, void *dst,
                              const int32_t *dstOrigin, const int32_t *dstStrides,
                              uint32_t srcType, const void *src, const int32_t *srcOrigin,
                              const int32_t *srcStrides, SornCmpOp op, const SornSeShape *box,
                              const SornVrng *vrange, int32_t shift, uint32_t reserved,
                              const SornBorderSpec *border, const SornSites *sites);
/* Layer 3. The plain form settles the value range (vrange, one record per
 * channel, or measured) and runs the kernel; the source must have the
 * box's margin readable around it. The edge-handling form makes that
 * margin in scratch when it is not real (sites relative to the region's
 * first pixel). */
SornStatus sorna__countrelbox(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                              uint32_t dstType, void *dst, const int32_t *dstStrides,
                              uint32_t srcType, const void *src, const int32_t *srcStrides,
                              SornCmpOp op, const SornSeShape *box, const SornVrng *vrange,
                              int32_t shift, uint32_t reserved);
SornStatus sorna__ecountrelbox(SornXE *xe, SornFlags flags, SornDimPack pack,
                               const int32_t *sizes, uint32_t dstType, void *dst,
                               const int32_t *dstStrides, uint32_t srcType, const void *src,
                               const int32_t *srcStrides, SornCmpOp op, const SornSeShape *box,
                               const SornVrng *vrange, int32_t shift, uint32_t reserved,
                               const SornBorderSpec *border, const SornSites *sites);

/* Kernels, by destination and source type: the count of every pixel of the
 * region, the source having the box's margin readable around it. vrange is
 * the settled range of the one channel (floor of lo and ceiling of hi,
 * clipped to 0..255, bound the histograms; a value outside counts as the
 * nearer end). Flag SORN_F_NOMARGIN asks whether the kernel can do without
 * the margin: it cannot, SORN_EAGAIN. The 256 kernels serve boxes of at
 * most 256 pixels with 8-bit counters, so that a count of 256 reads 0; they
 * answer SORN_ENOTSUP for a larger box, and the general kernels try them
 * first. An operator other than 3 to 7, or a box not normalised (a size
 * below 1, an anchor outside it), is SORN_EINVAL. */
typedef SornStatus (*SornCountRelBoxKernel)(SornXE *xe, SornFlags flags, int32_t n,
                                            const int32_t *dims, void *dst,
                                            const int32_t *dstStrides, const void *src,
                                            const int32_t *srcStrides, SornCmpOp op,
                                            const SornSeShape *box, const SornVrng *vrange,
                                            int32_t shift, uint32_t reserved);
/* The kernel of a channel word and a type pair (u8 from u8, s16 from u8):
 * other known pairs and two to four channels are SORN_ENOTSUP, an unknown
 * type or a word of no channel count SORN_EINVAL. flags choose nothing. */
SornCountRelBoxKernel sorna__countrelboxfun_imp(SornFlags flags, uint32_t chword,
                                                uint32_t dstType, uint32_t srcType,
                                                SornStatus *status);

#define SORN_COUNTRELBOX_PAIRS(X) X(u8, u8) X(s16, u8)
#define SORN_COUNTRELBOX_KERNEL_DECL1(name, d, s)                                            \
  SornStatus name##_c1_##d##s(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,  \
                              void *dst, const int32_t *dstStrides, const void *src,        \
                              const int32_t *srcStrides, SornCmpOp op,                      \
                              const SornSeShape *box, const SornVrng *vrange, int32_t shift, \
                              uint32_t reserved);
#define SORN_COUNTRELBOX_KERNEL_DECL(d, s)                   \
  SORN_COUNTRELBOX_KERNEL_DECL1(sorna__countrelbox, d, s)    \
  SORN_COUNTRELBOX_KERNEL_DECL1(sorna__countrelbox256, d, s)
SORN_COUNTRELBOX_PAIRS(SORN_COUNTRELBOX_KERNEL_DECL)
#undef SORN_COUNTRELBOX_KERNEL_DECL
#undef SORN_COUNTRELBOX_KERNEL_DECL1

/* ---------------- Firefly filter ----------------
 * Three views of an image mixed with integer weights. Kind 5 mixes three
 * Gaussian blurs; kinds 3 and 4 put a global gain image and a local rank
 * image (a sliding-window equalisation, by relative box count) beside the
 * original, kind 3 linearly, kind 4 as differences of logarithms; kind 0
 * is a copy. Firefly has no kernels of its own: it is a script over the
 * Gaussian filter, histogram, relative box count, multiplication,
 * multiply-accumulate, conversion, logarithm and subtraction. */
#define SORN_FIREFLY_COPY  0
#define SORN_FIREFLY_CRB   3 /* linear: source, gain image, local rank */
#define SORN_FIREFLY_CRBLN 4 /* log ratios of the same three */
#define SORN_FIREFLY_GAUSS 5 /* three Gaussian blurs */
#define SORN_TAG_FRFL SORN_FOURCC('f', 'r', 'f', 'l')
#define SORN_TAG_FFLX SORN_FOURCC('f', 'f', 'l', 'x')

/* The block that travels with a slice of an explicit firefly call. */
typedef struct SornFireflyArgs {
  uint32_t kind;
  const int32_t *weights;
  uint32_t count;
  const SornSeShape *shapes;
  const SornBorderSpec *border;
  const SornSites *sites;
} SornFireflyArgs;

/* dst = the firefly of kind over src, framed as SornFilter frames a filter.
 * The one window se (null: 5 by 5) is expanded into three: se itself, 5
 * times and 15 times its extent, weighted 1, 6 and 9. */
SornStatus SornFirefly(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                       const SornSeShape *se);
/* The explicit form: count windows in ascending order of size (the frame
 * widens the region by the last) and one weight per window. Kinds 3 and 4
 * read the quantile of the gain from the depth cells of shapes[1] (anchor
 * over size) and take shapes[2] as the rank window, square with a side a
 * power of two. */
SornStatus SornFireflyEx(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                         const SornSeShape *shapes, const int32_t *weights, int32_t count);
/* The slice forms: args is a SornFilterArgs and a SornFireflyArgs. */
SornStatus SornTGAfirefly(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                          int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                          int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,
                          int32_t *srcStrides);
SornStatus SornTGAfireflyex(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                            int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                            int32_t *dstStrides, uint32_t srcType, void *src,
                            int32_t *srcOrigin, int32_t *srcStrides);
/* Layer 2, as sorna_filter and sorna_efilter. */
SornStatus sorna_firefly(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se);
SornStatus sorna_efirefly(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                          const int32_t *srcStrides, int32_t kind, const SornSeShape *se,
                          const SornBorderSpec *border, const SornSites *sites);
SornStatus sorna_fireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                           uint32_t type, void *dst, const int32_t *dstOrigin,
                           const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                           const int32_t *srcStrides, int32_t kind, const SornSeShape *shapes,
                           const int32_t *weights, int32_t count);
SornStatus sorna_efireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstOrigin,
                            const int32_t *dstStrides, const void *src,
                            const int32_t *srcOrigin, const int32_t *srcStrides, int32_t kind,
                            const SornSeShape *shapes, const int32_t *weights, int32_t count,
                            const SornBorderSpec *border, const SornSites *sites);
/* Layer 3: by kind, without and with the edge decision (the window being
 * shapes[count - 1]), and the three scripts. */
SornStatus sorna__fireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                            const int32_t *srcStrides, int32_t kind, const SornSeShape *shapes,
                            const int32_t *weights, int32_t count);
SornStatus sorna__efireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides,
                             const void *src, const int32_t *srcStrides, int32_t kind,
                             const SornSeShape *shapes, const int32_t *weights, int32_t count,
                             const SornBorderSpec *border, const SornSites *sites);
SornStatus sorna__firefly_crb(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                              uint32_t type, void *dst, const int32_t *dstStrides,
                              const void *src, const int32_t *srcStrides,
                              const SornSeShape *shapes, const int32_t *weights);
SornStatus sorna__firefly_crbln(SornXE *xe, SornFlags flags, SornDimPack pack,
                                const int32_t *sizes, uint32_t type, void *dst,
                                const int32_t *dstStrides, const void *src,
                                const int32_t *srcStrides, const SornSeShape *shapes,
                                const int32_t *weights);
SornStatus sorna__firefly_gauss(SornXE *xe, SornFlags flags, SornDimPack pack,
                                const int32_t *sizes, uint32_t type, void *dst,
                                const int32_t *dstStrides, const void *src,
                                const int32_t *srcStrides, const SornSeShape *shapes,
                                const int32_t *weights, int32_t count);

/* ======================================================================
 * Matrix products
 * ====================================================================== */

/* Flags of the matrix family. */
#define SORN_F_MUL_TRANSPOSED 0x20000000ull /* second source of SornMulMM is N by K */
#define SORN_F_MUL_VECREADY   0x40000000ull /* vector list is the callee's to change */

/* The type table of the products: result, then the type of both sources.
 * Kernels, lookups, tests and benchmarks are all expanded from it. */
#define SORN_MULMM_PAIRS(X) X(f32, f32) X(s32, s32) X(u8, u8) X(s16, u8) X(s32, u8)
/* The integer pairs, which carry a power-of-two scale. */
#define SORN_MULMM_INT_PAIRS(X) X(s32, s32) X(u8, u8) X(s16, u8) X(s32, u8)

/* A vector list is an array of count pointers to rows of K elements. With a
 * count of 3 or more and a null third pointer it is strided: the first
 * pointer is the start, the second the byte distance between vectors. */
typedef SornStatus (*SornMulMMKernel)(SornXE *xe, SornFlags flags, SornDimPack pack,
                                      const int32_t *dims1, const int32_t *dims2, void *dst,
                                      const int32_t *dstStrides, const void *src1,
                                      const int32_t *strides1, const void *src2,
                                      const int32_t *strides2, int32_t shift, uint32_t reserved);
typedef SornStatus (*SornMulMVnKernel)(SornXE *xe, SornFlags flags, SornDimPack pack,
                                       const int32_t *dims1, const int32_t *dims2, void *dst,
                                       const int32_t *dstStrides, const void *src1,
                                       const int32_t *strides1, const void *const *vectors,
                                       const int32_t *strides2, int32_t count, int32_t shift,
                                       uint32_t reserved);

SornStatus SornMulMM(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                     const SornArray *src2, const SornVolume *dstRoi, const SornVolume *src1Roi,
                     const SornVolume *src2Site, int32_t shift, uint32_t reserved);
SornStatus SornMulMV(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                     const SornArray *src2, const SornVolume *dstRoi, const SornVolume *src1Roi,
                     const SornVolume *src2Site, int32_t shift, uint32_t reserved);
SornStatus SornMulMV_n(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                       const SornArray *const *vectors, const SornVolume *dstRoi,
                       const SornVolume *src1Roi, const SornVolume *vecSite, int32_t count,
                       int32_t shift, uint32_t reserved);

SornStatus sorna_mulmm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                       const int32_t *dims2, uint32_t dstType, void *dst,
                       const int32_t *dstOrigin, const int32_t *dstStrides, uint32_t type1,
                       const void *src1, const int32_t *origin1, const int32_t *strides1,
                       uint32_t type2, const void *src2, const int32_t *origin2,
                       const int32_t *strides2, int32_t shift, uint32_t reserved);
SornStatus sorna_mulmv(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                       const int32_t *dims2, uint32_t dstType, void *dst,
                       const int32_t *dstOrigin, const int32_t *dstStrides, uint32_t type1,
                       const void *src1, const int32_t *origin1, const int32_t *strides1,
                       uint32_t type2, const void *src2, const int32_t *origin2,
                       const int32_t *strides2, int32_t shift, uint32_t reserved);
SornStatus sorna_mulmvn(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst,
                        const int32_t *dstOrigin, const int32_t *dstStrides, uint32_t type1,
                        const void *src1, const int32_t *origin1, const int32_t *strides1,
                        uint32_t type2, void **vectors, const int32_t *origin2,
                        const int32_t *strides2, int32_t count, int32_t shift,
                        uint32_t reserved);

SornStatus sorna__mulmm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst,
                        const int32_t *dstStrides, uint32_t type1, const void *src1,
                        const int32_t *strides1, uint32_t type2, const void *src2,
                        const int32_t *strides2, int32_t shift, uint32_t reserved);
SornStatus sorna__mulmmt(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                         const int32_t *dims2, uint32_t dstType, void *dst,
                         const int32_t *dstStrides, uint32_t type1, const void *src1,
                         const int32_t *strides1, uint32_t type2, const void *src2,
                         const int32_t *strides2, int32_t shift, uint32_t reserved);
SornStatus sorna__mulmv(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst,
                        const int32_t *dstStrides, uint32_t type1, const void *src1,
                        const int32_t *strides1, uint32_t type2, const void *src2,
                        const int32_t *strides2, int32_t shift, uint32_t reserved);
SornStatus sorna__mulmvn(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                         const int32_t *dims2, uint32_t dstType, void *dst,
                         const int32_t *dstStrides, uint32_t type1, const void *src1,
                         const int32_t *strides1, uint32_t type2, const void *const *vectors,
                         const int32_t *strides2, int32_t count, int32_t shift,
                         uint32_t reserved);

SornMulMMKernel sorna__amulmmfun_imp(uint32_t dstType, uint32_t src1Type, uint32_t src2Type,
                                     SornStatus *status);
SornMulMVnKernel sorna__amulmvnfun_imp(uint32_t dstType, uint32_t src1Type, uint32_t src2Type,
                                       SornStatus *status);

#define SORN_MULMM_KERNEL_DECL(d, s)                                                         \
  SornStatus sorna__mulmm_##d##s(SornXE *xe, SornFlags flags, SornDimPack pack,             \
                                 const int32_t *dims1, const int32_t *dims2, void *dst,     \
                                 const int32_t *dstStrides, const void *src1,               \
                                 const int32_t *strides1, const void *src2,                 \
                                 const int32_t *strides2, int32_t shift, uint32_t reserved); \
  SornStatus sorna__mulmvn_##d##s(SornXE *xe, SornFlags flags, SornDimPack pack,            \
                                  const int32_t *dims1, const int32_t *dims2, void *dst,    \
                                  const int32_t *dstStrides, const void *src1,              \
                                  const int32_t *strides1, const void *const *vectors,      \
                                  const int32_t *strides2, int32_t count, int32_t shift,    \
                                  uint32_t reserved);
SORN_MULMM_PAIRS(SORN_MULMM_KERNEL_DECL)
#undef SORN_MULMM_KERNEL_DECL

/* Shape helpers. A product helper computes dst (m by n) from a (m by k) and
 * b (k by n); a list helper computes dst (m by count) from a and the rows of
 * a vector list. Row strides in bytes; elements adjacent within a row. */
typedef void (*SornMulShapeProc)(int32_t m, int32_t k, int32_t n, void *dst, int32_t dstStride,
                                 const void *a, int32_t aStride, const void *b, int32_t bStride,
                                 int32_t shift);
typedef void (*SornMulListProc)(int32_t m, int32_t k, int32_t count, void *dst,
                                int32_t dstStride, const void *a, int32_t aStride,
                                const void *const *vectors, int32_t shift);
#define SORN_MUL_SHAPE_DECL(name)                                                           \
  void name(int32_t m, int32_t k, int32_t n, void *dst, int32_t dstStride, const void *a,   \
            int32_t aStride, const void *b, int32_t bStride, int32_t shift);
#define SORN_MUL_LIST_DECL(name)                                                            \
  void name(int32_t m, int32_t k, int32_t count, void *dst, int32_t dstStride,              \
            const void *a, int32_t aStride, const void *const *vectors, int32_t shift);
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w11)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w12)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w13)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w14)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w15_h1)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w22)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w23)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w24)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w12_w22)
SORN_MUL_SHAPE_DECL(__sorna__mulmm_f32f32_w13_w23)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_n1)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_n2)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_n3)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_n4)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_w1)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_w2)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_w3)
SORN_MUL_LIST_DECL(__sorna__mulmvn_f32f32_w4)
#define SORN_MUL_INT_HELPER_DECL(d, s)                                                      \
  SORN_MUL_SHAPE_DECL(_T_sorna__mulmm_##d##s##_w11)                                         \
  SORN_MUL_SHAPE_DECL(_T_sorna__mulmm_##d##s##_w12)                                         \
  SORN_MUL_SHAPE_DECL(_T_sorna__mulmm_##d##s##_w13)                                         \
  SORN_MUL_LIST_DECL(_T_sorna__mulmvn_##d##s##_w1)                                          \
  SORN_MUL_LIST_DECL(_T_sorna__mulmvn_##d##s##_w2)
SORN_MULMM_INT_PAIRS(SORN_MUL_INT_HELPER_DECL)
#undef SORN_MUL_INT_HELPER_DECL
#undef SORN_MUL_SHAPE_DECL
#undef SORN_MUL_LIST_DECL
/* Gathers two adjacent f32 columns of k rows into two rows, the second
 * rowBytes behind the first. */
void __sorna__mulmm_transpose_f32_w2(void *out, const void *src, int32_t rowBytes,
                                     int32_t srcStride, int32_t k);

/* Packing rules and cost formulas. */
int __sorn_mulmm_should_copy_src2(int64_t m, int64_t kBytes, int64_t rowBytes, int64_t gap);
int __sorn_mulmvn_should_copy_src2(int64_t m, int64_t rowBytes, int64_t count, int64_t gap);
int __sorn_mulmm_impalg_sel(int32_t a, int32_t b, int32_t c, int32_t flag);
int __sorn_mulmvn_impalg_sel(int32_t a, int32_t b, int32_t c, int32_t flag);
typedef struct SornBlockSizes {
  int32_t first;
  int32_t second;
} SornBlockSizes;
SornBlockSizes *__sorn_mulmm_blocksizes(SornBlockSizes *out, int32_t b1, int32_t b2, int32_t b3);

/* ======================================================================
 * Region analysis
 * ====================================================================== */

/* ---------------- Trees: nodes, tree records, tree builders ---------------- */

/* One node of a first-child, next-sibling tree. */
typedef struct SornAGTnode {
  struct SornAGTnode *next;   /* next sibling, null at the end of the list */
  struct SornAGTnode *child;  /* first child, null for a leaf */
  struct SornAGTnode *parent; /* null at the root */
  void *data;                 /* the payload; its first word points back here */
} SornAGTnode;

/* Walk callbacks get (node, arg, index); the result steers the walk. */
typedef int32_t (*SornAGTwalkFn)(SornAGTnode *node, void *arg, int32_t index);

#define SORN_WALK_PREORDER  1
#define SORN_WALK_INORDER   2
#define SORN_WALK_POSTORDER 3

struct SornSTB;

typedef struct SornSTree {
  SornAGTnode *root;                                          /* null for an empty tree */
  void (*onattach)(struct SornSTree *tree, struct SornSTB *builder); /* or null */
  void (*onclear)(struct SornSTree *tree, struct SornSTB *builder);  /* before root is reset */
  void (*deleter)(void *tree);       /* frees the record itself; free() for SornSTopen's own */
  struct SornSTB *builder;           /* the builder attached, or null */
} SornSTree;

/* Header of one block of an operation chain. The chain is a run of blocks
 * laid out back to back; a tag of 0 ends it. A SornSTBops pointer points at
 * the first block. */
typedef struct SornSTBops {
  uint32_t tag;    /* four characters, high byte first */
  uint32_t length; /* bytes of the block, header included */
} SornSTBops;

#define SORN_STB_TAG_STBL SORN_FOURCC('s', 't', 'b', 'l')
#define SORN_STB_TAG_WTSL SORN_FOURCC('w', 't', 's', 'l')

typedef void (*SornSTBnodeDtor)(SornAGTnode *node, struct SornSTB *builder);

/* The block every builder's chain holds: how its nodes die, and the news of
 * trees coming and going. Each slot may be null. */
typedef struct SornSTBstbl {
  SornSTBops hdr; /* 'stbl', 32 */
  SornSTBnodeDtor (*getddtor)(struct SornSTB *builder, int32_t keep, uint32_t tag);
  void (*attached)(struct SornSTB *builder, SornSTree *tree, uint32_t tag);
  void (*become_detached)(struct SornSTB *builder);
} SornSTBstbl;

/* SornSTB flags. */
#define SORN_STB_INITED   1u
#define SORN_STB_ONSTACK  16u /* the record lies on a memory stack */
#define SORN_STB_OWNSTACK 32u /* that stack was opened for the record and dies with it */

/* A tree builder. Behind the record lie extsize bytes of extension area for
 * the concrete builder (SORN_STB_EXT gives their address). */
typedef struct SornSTB {
  const SornSTBops *ops; /* the operation chain */
  void *userdata;        /* the concrete builder's */
  SornSTree *tree;       /* the attached tree or null */
  uint16_t flags;
  uint16_t extsize;
  uint32_t reserved;
  void *mmstack;         /* where nodes live; null until first needed */
  void *mmparent;        /* parent handed to KuSMEMSTGopen */
  uint64_t mmown[6];     /* room for a stack that the builder opens itself */
  KuMark mmbase;         /* the stack's level when the builder took it */
  SornSTree owntree;     /* the tree used when nobody attached one */
} SornSTB;

#define SORN_STB_EXT(b) ((void *)((char *)(b) + sizeof(SornSTB)))

SornAGTnode *SornAGTaddchild(SornAGTnode *parent, SornAGTnode *child);
SornAGTnode *SornDGTnodeData(SornAGTnode *node, void *slot);
int32_t SornAGTcountChildren(const SornAGTnode *node, int recursive);
int32_t SornAGTwalkFromNode(SornAGTnode *node, int32_t order, SornAGTwalkFn fn, void *arg);
int32_t SornAGTwalk(SornSTree *tree, int32_t order, SornAGTwalkFn fn, void *arg);
int32_t _T_agt_walk_preorder(SornAGTnode *node, SornAGTwalkFn fn, void *arg);
int32_t _T_agt_walk_inorder(SornAGTnode *node, SornAGTwalkFn fn, void *arg);
int32_t _T_agt_walk_postorder(SornAGTnode *node, SornAGTwalkFn fn, void *arg);

/* The block with that tag in a chain, or null. */
void *_T_stb__findblock(const SornSTBops *ops, uint32_t tag);

SornSTB *SornSTBopen(SornSTB *builder, const SornSTBops *ops, size_t extsize, SornSTree *tree,
                     void *mmstack, void *mmparent);
SornSTB *SornSTBinit(SornSTB *builder, const SornSTBops *ops, size_t extsize, SornSTree *tree,
                     void *mmstack, void *mmparent);
SornSTB *SornSTBfini(SornSTB *builder, int keep);
void SornSTBclose(SornSTB *builder, int keep);
SornSTB *SornSTBclear(SornSTB *builder, int keep);
SornSTB *SornSTBxtrntree(SornSTB *builder, SornSTree *tree);
SornAGTnode *SornSTBnewnode(SornSTB *builder);
SornSTree *__SornSTBtree(SornSTB *builder);
SornSTree *__SornSTBrootnode(SornSTB *builder, SornAGTnode *node);
SornSTB *__SornSTBattach(SornSTB *builder, SornSTree *tree);
SornSTB *__SornSTBdetach(SornSTB *builder);
void *__SornSTBmmstack(SornSTB *builder);
SornSTB *__SornSTBinitMmstack(SornSTB *builder, void *mmparent);
SornSTB *__SornSTBresetMmstack(SornSTB *builder, void *mmstack, void *mmparent);
SornSTB *__SornSTBdestroyMmstack(SornSTB *builder);
KuMark *__SornSTBgetmmsp(SornSTB *builder, KuMark *state);
void __SornSTBsetmmsp(SornSTB *builder, const KuMark *state);
void __SornSTBfreea(SornSTB *builder, void *block);
SornSTB *_T_STBdestroyTree(SornSTB *builder, int keep);
/* Post-order callback of the tree destruction; arg is the internal frame. */
int32_t _T_stb__call_data_dtor(SornAGTnode *node, void *frame, int32_t index);

SornSTree *SornSTopen(SornSTree *tree, SornSTB *builder);
SornSTree *SornSTinit(SornSTree *tree, SornSTB *builder);
SornSTree *SornSTfini(SornSTree *tree, int keep);
void SornSTclose(SornSTree *tree, int keep);
SornSTree *SornSTclear(SornSTree *tree, int keep);
SornSTree *SornSTsetbuilder(SornSTree *tree, SornSTB *builder);
SornSTree *__SornST_setbuilder(SornSTree *tree, SornSTB *builder);

/* ---------------- Watershed tree builder, regions, features ---------------- */

/* Head of a region; the feature values follow at their descriptors' offsets. */
typedef struct SornWTSRegion {
  SornAGTnode *node;
  uint32_t pivot;    /* linear index where the region began; -1 in the bottom region */
  uint32_t pivotval; /* grey level in the run's polarity; 0x7FFFFFFF in the bottom region */
  uint32_t size;     /* pixels, with all that merged in from below */
  uint32_t mserflag; /* set by stable region selection */
} SornWTSRegion;

#define SORN_WTS_REGION_HEAD 24u

/* Descriptor of one feature: its value record and what can be done with it. */
typedef struct SornWTSFeatureDs {
  uint32_t magic;
  uint32_t size;   /* bytes of the value record */
  uint32_t offset; /* place of the value in a region, from SornWTSLSCfixup */
  uint32_t reserved;
  void *arg;       /* handed to init */
  void (*init)(void *value, void *arg);
  void (*destroy)(void *value);
  void (*copy)(void *target, const void *source, int32_t flags);
  void (*update)(void *value, const uint32_t *points, int32_t n);  /* 8 u32 a point: _, row, col */
  void (*update2D)(void *value, const int32_t *points, int32_t n); /* (row, col) pairs */
  void (*merge)(void *value, const void *other);
  void (*lazymerge)(void *value, const void *other);
  int (*isgathered)(const void *value);
  void (*ongather)(void *value, SornWTSRegion *region);
} SornWTSFeatureDs;

#define SORN_WTS_MAGIC_MOMENTS SORN_FOURCC('m', 'n', 't', 'f')
#define SORN_WTS_MAGIC_PIXELS  SORN_FOURCC('p', 'x', 'l', 'f')

/* Region layout context: what a region holds and on what image a run works. */
typedef struct SornWTSLSC {
  SornWTSFeatureDs *features;
  int32_t nfeatures;
  uint32_t regionsize; /* head and features; recomputed while 24 or less */
  uint32_t dims[4];    /* 1, rows, columns, 1 */
  uint32_t strides[4]; /* rows * rowstride, rowstride, 1, 1 */
} SornWTSLSC;

/* The second block of a watershed builder's chain, the one a flooding runs
 * through. options points at the polarity word of the run, restore after it.
 * The C library may define alloca as a macro: call the slot as
 * (w->alloca)(builder, size, align). */
typedef struct SornWTSTBwtsl {
  SornSTBops hdr; /* 'wtsl', 88 */
  void *(*alloca)(SornSTB *builder, size_t size, size_t align);
  void (*start)(SornSTB *builder, SornWTSLSC *lsc, SornFlags flags, const uint16_t *options);
  void (*finish)(SornSTB *builder, SornWTSLSC *lsc, const uint16_t *options);
  SornWTSRegion *(*newregion)(SornWTSRegion *region, SornSTB *builder, SornWTSLSC *lsc);
  void (*destroyrgn)(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);
  void (*disposergn)(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);
  void (*accumulate)(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                     const uint32_t *points, int32_t n);
  void (*accumulate2D)(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                       const int32_t *points, int32_t n);
  SornSTree *(*merge)(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *survivor,
                      SornWTSRegion *absorbed);
  void *(*gatherfeat)(SornSTB *builder, SornWTSLSC *lsc, void *target, void *source,
                      int32_t index, uint32_t magic);
} SornWTSTBwtsl;

/* A whole operation table of the watershed builder: 16 words. */
typedef struct SornWTSTBopv {
  SornSTBstbl stbl;
  SornWTSTBwtsl wtsl;
  uint64_t end; /* 0 */
} SornWTSTBopv;

#define SORN_WTSTB_EXTSIZE 48u

extern const SornWTSTBopv _S_wtstb_lazy_opv; /* features left alone by merges (default) */
extern const SornWTSTBopv _S_wtstb_opv;      /* features combined at every merge */
extern const SornWTSTBopv _S_wtstb_mf_opv;   /* one moment feature, lazy */
extern const SornWTSTBopv _S_wtstb_pf_opv;   /* one pixel feature, sizes only */

SornSTB *SornWTSTBopen(SornSTB *builder, SornSTree *tree, void *mmstack, void *mmparent);
SornSTB *SornWTSTBinit(SornSTB *builder, SornSTree *tree, void *mmstack, void *mmparent);
const SornSTBops *SornWTSTBxinterface(void);
SornSTB *__SornWTSTBinit__(SornSTB *builder);

SornWTSLSC *SornWTSLSCinit2D(SornWTSLSC *lsc, SornWTSFeatureDs *features, int32_t nfeatures,
                             int32_t rows, int32_t columns, int32_t rowstride);
SornWTSLSC *SornWTSLSCinit(SornWTSLSC *lsc, SornWTSFeatureDs *features, int32_t nfeatures,
                           SornDimPack code, const int32_t *dims, const int32_t *strides);
SornWTSLSC *SornWTSLSCsetimvol2D(SornWTSLSC *lsc, int32_t rows, int32_t columns,
                                 int32_t rowstride);
SornWTSLSC *SornWTSLSCsetimvol(SornWTSLSC *lsc, SornDimPack code, const int32_t *dims,
                               const int32_t *strides);
SornWTSLSC *SornWTSLSCfixup(SornWTSLSC *lsc);

SornWTSRegion *__SornWTSTBnewregion(SornWTSRegion *region, SornSTB *builder, SornWTSLSC *lsc);
SornWTSRegion *__SornWTSTBnewregionNode(SornWTSRegion *region, SornSTB *builder,
                                        SornWTSLSC *lsc);
SornAGTnode *__SornWTSTBnewnodeWithRegion(SornSTB *builder, SornWTSRegion *region);
void __SornWTSTBdestroyrgn(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);
void __SornWTSTBdisposergn(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);

/* The functions of the operation tables. */
SornSTBnodeDtor _T_wtstb__getddtor__(SornSTB *builder, int32_t keep, uint32_t tag);
void _T_wtstb__attached__(SornSTB *builder, SornSTree *tree, uint32_t tag);
void _T_wtstb__become_detached__(SornSTB *builder);
void *_T_wtstb__alloca__(SornSTB *builder, size_t size, size_t align);
void _T_wtstb__start__(SornSTB *builder, SornWTSLSC *lsc, SornFlags flags,
                       const uint16_t *options);
void _T_wtstb__finish__(SornSTB *builder, SornWTSLSC *lsc, const uint16_t *options);
SornWTSRegion *_T_wtstb__newregion_v2__(SornWTSRegion *region, SornSTB *builder,
                                        SornWTSLSC *lsc);
void _T_wtstb__destroyrgn__(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);
void _T_wtstb__disposergn__(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);
void _T_wtstb__accumulate__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                            const uint32_t *points, int32_t n);
void _T_wtstb__accumulate2D__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                              const int32_t *points, int32_t n);
void _T_wtstb__accumulate_mf__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                               const uint32_t *points, int32_t n);
void _T_wtstb__accumulate2D_mf__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                                 const int32_t *points, int32_t n);
void _T_wtstb__accumulate_pf__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                               const uint32_t *points, int32_t n);
void _T_wtstb__accumulate2D_pf__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *region,
                                 const int32_t *points, int32_t n);
SornSTree *_T_wtstb__merge_v2__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *survivor,
                                SornWTSRegion *absorbed);
SornSTree *_T_wtstb__lazymerge_v2__(SornSTB *builder, SornWTSLSC *lsc, SornWTSRegion *survivor,
                                    SornWTSRegion *absorbed);
void *_T_wtstb__gatherfeat__(SornSTB *builder, SornWTSLSC *lsc, void *target, void *source,
                             int32_t index, uint32_t magic);
/* Walk callbacks; frame is the gather's internal record. */
int32_t _T_wtstb__dogatherfeat(SornAGTnode *node, void *frame, int32_t index);
int32_t _T_wtstb__dogatherfeatI(SornAGTnode *node, void *frame, int32_t index);
int32_t _T_wtstb__xor_region_pivot_value(SornAGTnode *node, void *arg, int32_t index);
void _T_wtstb__destroy_node_region(SornAGTnode *node, SornSTB *builder);

/* Moment value: count, then sums of r, c, r*r, r*c, c*c. A count of zero or
 * below means not gathered (its magnitude: pixels taken directly); above
 * zero it is the pixel count of the whole region. 48 bytes. */
typedef struct SornWTSMF {
  int32_t count;
  int32_t reserved;
  double sr, sc, srr, src, scc;
} SornWTSMF;

/* Pixel value: the top bit of capacity marks the value gathered. 24 bytes. */
typedef struct SornWTSPF {
  uint64_t capacity;
  uint64_t count;
  int32_t *points; /* (row, column) pairs, from _KuMrealloc */
} SornWTSPF;

#define SORN_WTSPF_GATHERED 0x8000000000000000ull

SornWTSFeatureDs *SornWTSMFinitFeatureDs(SornWTSFeatureDs *ds, void *arg);
SornWTSFeatureDs *SornWTSPFinitFeatureDs(SornWTSFeatureDs *ds, void *arg);
int32_t SornWTSFindexByMagic(const SornWTSFeatureDs *features, int32_t n, uint32_t magic);

SornWTSMF *SornWTSMF_update2D(SornWTSMF *value, int32_t row, int32_t column);
SornWTSMF *SornWTSMF_update2D_n(SornWTSMF *value, const int32_t *points, int32_t n);
SornWTSMF *SornWTSMF_update_n(SornWTSMF *value, const uint32_t *points, int32_t n);
double *sorn_mf_M2(double *out, const SornWTSMF *value);
double sorn_mf_theta(const SornWTSMF *value);
void __SornWTSMF__update__(void *value, const uint32_t *points, int32_t n);
void __SornWTSMF__update2D__(void *value, const int32_t *points, int32_t n);
void __SornWTSMF__merge__(void *value, const void *other);
void __SornWTSMF__lazymerge__(void *value, const void *other);
int __SornWTSMF__isgathered__(const void *value);
void __SornWTSMF__ongather__(void *value, SornWTSRegion *region);

SornWTSPF *SornWTSPF_update2D(SornWTSPF *value, int32_t row, int32_t column);
SornWTSPF *SornWTSPF_update2D_n(SornWTSPF *value, const int32_t *points, int32_t n);
SornWTSPF *SornWTSPF_update_n(SornWTSPF *value, const uint32_t *points, int32_t n);
void __SornWTSPF__init__(void *value, void *arg);
void __SornWTSPF__destroy__(void *value);
void __SornWTSPF__update__(void *value, const uint32_t *points, int32_t n);
void __SornWTSPF__update2D__(void *value, const int32_t *points, int32_t n);
void __SornWTSPF__merge__(void *value, const void *other);
void __SornWTSPF__lazymerge__(void *value, const void *other);
int __SornWTSPF__isgathered__(const void *value);
void __SornWTSPF__ongather__(void *value, SornWTSRegion *region);

/* ---------------- Region results of the f-form flooding ---------------- */

#ifndef SORN_HAVE_2DPT
#define SORN_HAVE_2DPT 1
/* An integer point; in the region analysis x is the row. */
typedef struct Sorn2dPt {
  int32_t x, y;
} Sorn2dPt;
#endif

/* A growing vector: capacity and count in items. */
typedef struct SornVec {
  uint64_t capacity;
  uint64_t count;
  void *items;
} SornVec;

#define SORN_FWTSR_END 0x7FFFFFFF

typedef struct SornFWTSRegion {
  int32_t head;      /* first own pixel, SORN_FWTSR_END if none */
  int32_t tail;      /* last own pixel, the pivot at birth */
  int32_t level;
  uint32_t size;     /* with all regions below */
  uint32_t mserflag;
  uint32_t reserved;
  struct SornFWTSRegion *next;
  struct SornFWTSRegion *child;
  struct SornFWTSRegion *parent;
} SornFWTSRegion;

typedef struct SornFWTSRES {
  SornFWTSRegion *root;
  uint32_t *links;     /* at the word of pixel 0 */
  uint32_t *linkbase;  /* the block, front pad included */
  void *mmstack;
  uint64_t mmown[6];
  KuMark mmbase;
} SornFWTSRES;

/* One fetched region: its own points first, its descendants' behind. */
typedef struct SornFwtsrPixReg {
  Sorn2dPt *pixels;
  int32_t level;
  uint32_t ownpixels;
  uint32_t size;
  uint32_t mserflag;
  struct SornFwtsrPixReg *next;
  struct SornFwtsrPixReg *child;
  struct SornFwtsrPixReg *parent;
} SornFwtsrPixReg;

typedef int32_t (*SornFwtsrWalkFn)(SornFWTSRegion *region, void *arg, int32_t index);
typedef int32_t (*SornFwtsrRegionFn)(SornFWTSRegion *region, void *arg, int32_t index,
                                     int32_t phase);
typedef void (*SornFwtsrPixelFn)(int32_t row, int32_t column, void *arg);

SornFWTSRES *SornFWTSRESinit(SornFWTSRES *res, uint32_t *linkbase, void *mmstack);
SornFWTSRES *SornFWTSRESfini(SornFWTSRES *res);
SornFWTSRegion *SornFWTSRESnewregion(SornFWTSRES *res, int32_t tail, int32_t level);
void *SornFWTSRESalloca(SornFWTSRES *res, size_t size, size_t align);
void SornFWTSRES_freea(SornFWTSRES *res, void *block);

int32_t sorn_fwtsr_countpix_$proper(const SornFWTSRegion *region);
SornFWTSRegion *sorn_fwtsr_fixup(SornFWTSRegion *region, const uint32_t *links);
SornFWTSRegion *sorn_fwtsr_addcld(SornFWTSRegion *parent, SornFWTSRegion *child);
int32_t sorn_fwtsr_countcld(const SornFWTSRegion *region, int recursive);
int32_t sorn_fwtsr_countcld_$R(const SornFWTSRegion *region);
int32_t sorn_fwtsr_countcld_$mser(const SornFWTSRegion *region, int recursive);
int32_t sorn_fwtsr_countcld_$mser$R(const SornFWTSRegion *region);
int32_t sorn_fwtsr_walk(SornFWTSRegion *region, int32_t order, SornFwtsrWalkFn fn, void *arg);
int32_t sorn_fwtsr_walk_$preorder(SornFWTSRegion *region, SornFwtsrWalkFn fn, void *arg);
int32_t sorn_fwtsr_walk_$inorder(SornFWTSRegion *region, SornFwtsrWalkFn fn, void *arg);
int32_t sorn_fwtsr_walk_$postorder(SornFWTSRegion *region, SornFwtsrWalkFn fn, void *arg);
int32_t sorn_fwtsr_pixenum_$2d(SornFWTSRegion *region, const uint32_t *links, int32_t rows,
                               int32_t columns, SornFwtsrRegionFn regionfn,
                               SornFwtsrPixelFn pixelfn, void *arg);
int32_t _T_fwtsr__pixenum(SornFWTSRegion *region, const uint32_t *links, int32_t columns,
                          SornFwtsrRegionFn regionfn, SornFwtsrPixelFn pixelfn, void *arg,
                          int32_t *nregions);

/* Fetching; points is a SornVec of Sorn2dPt, a vector of records one of
 * SornFwtsrPixReg. */
SornVec *sorn_fwtsr_fetchpix_$2d(SornVec *points, const SornFWTSRegion *region,
                                 const uint32_t *links, int proper, int32_t rows,
                                 int32_t columns);
SornVec *sorn_fwtsr_fetchpix(SornVec *points, const SornFWTSRegion *region,
                             const uint32_t *links, int proper, SornDimPack code,
                             const int32_t *dims);
int32_t sorn_fwtsr_fetchpixregs_$2d(SornFwtsrPixReg *regs, int32_t capacity, SornVec *points,
                                    const SornFWTSRegion *region, const uint32_t *links,
                                    int32_t rows, int32_t columns);
int32_t sorn_fwtsr__fetchpixregs_$2d(SornFwtsrPixReg *regs, SornVec *points,
                                     const SornFWTSRegion *region, const uint32_t *links,
                                     int32_t rows, int32_t columns);
int32_t sorn_fwtsr_efetchpixregs_$2d(SornVec *regs, SornVec *points,
                                     const SornFWTSRegion *region, const uint32_t *links,
                                     int32_t rows, int32_t columns);
int32_t sorn_fwtsr__efetchpixregs_$2d(SornVec *regs, SornVec *points,
                                      const SornFWTSRegion *region, int32_t ndesc,
                                      const uint32_t *links, int32_t rows, int32_t columns);
int32_t sorn_fwtsr_fetchpixregs_$mser$2d(SornFwtsrPixReg *regs, int32_t capacity,
                                         SornVec *points, const SornFWTSRegion *region,
                                         const uint32_t *links, int32_t rows, int32_t columns);
int32_t sorn_fwtsr__fetchpixregs_$mser$2d(SornFwtsrPixReg *regs, SornVec *points,
                                          const SornFWTSRegion *region, int32_t ndesc,
                                          const uint32_t *links, int32_t rows, int32_t columns);
int32_t sorn_fwtsr_efetchpixregs_$mser$2d(SornVec *regs, SornVec *points,
                                          const SornFWTSRegion *region, const uint32_t *links,
                                          int32_t rows, int32_t columns);
int32_t sorn_fwtsr__efetchpixregs_$mser$2d(SornVec *regs, SornVec *points,
                                           const SornFWTSRegion *region, int32_t ndesc,
                                           const uint32_t *links, int32_t rows,
                                           int32_t columns);
/* Inner forms: they return the next free record. */
SornFwtsrPixReg *_T_fwtsr__fetchpixregs2D(SornFwtsrPixReg *rec, SornVec *points,
                                          const SornFWTSRegion *region, const uint32_t *links,
                                          int32_t columns);
SornFwtsrPixReg *_T_fwtsr__fetchmserpixregs2D(SornFwtsrPixReg *parent, SornFwtsrPixReg *cursor,
                                              SornVec *points, const SornFWTSRegion *region,
                                              const uint32_t *links, int32_t columns);
/* Stores the topmost marked regions below region, reached through unmarked
 * ones, from out on; returns how many. */
int32_t _T_fwtsr__findrootmsers(const SornFWTSRegion **out, const SornFWTSRegion *region);

/* ---------------- Watershed flooding ---------------- */

#define SORN_TAG_WTSH SORN_FOURCC('w', 't', 's', 'h')
#define SORN_TAG_WTSX SORN_FOURCC('w', 't', 's', 'x')
/* Either bit sends a four-dimensional flooding to the f form. */
#define SORN_F_WTS_FFORM   0x600000ull
/* Masked floodings: the excluded mask value is 255 instead of 0. */
#define SORN_F_WTS_INVMASK 0x20000ull

/* The run record of a flooding. 40 bytes. */
typedef struct SornWTSState {
  void *builder;         /* plain form: the SornSTB; f form: the SornFWTSRES */
  SornWTSLSC *lsc;       /* plain form: the region layout */
  uint16_t polarity;     /* 1: levels are the values XOR 0xFF (bright to dark) */
  uint16_t restore;      /* polarity 1, plain form: finish puts back true levels */
  uint16_t connectivity; /* plain form: 0 four neighbours, else eight */
  uint16_t shift;        /* f form: levels are values shifted right (low byte) */
  uint32_t seed[4];      /* cell 1 the seed row, cell 2 its column */
} SornWTSState;

/* A region of the plain flooding before it reaches 16 pixels. Used through
 * the same pointer as a SornWTSRegion: node all ones tells them apart, and
 * pivot and pivotval lie at the same places. */
typedef struct SornWTSSmallRegion {
  uint64_t node;
  uint32_t pivot;
  uint32_t pivotval;
  uint32_t npoints;
  int32_t points[16][2]; /* (row, column) */
} SornWTSSmallRegion;

/* The free pool of the f form: pointers to regions over a null entry at the
 * bottom; count includes that entry. */
typedef struct SornFWTSRegionPool {
  SornFWTSRegion **items;
  int32_t count;
  int32_t capacity;
} SornFWTSRegionPool;

SornStatus SornWatershed(SornXE *xe, SornFlags flags, const SornArray *src,
                         const SornVolume *srcRoi, SornWTSState *state);
SornStatus SornWatershedEx(SornXE *xe, SornFlags flags, const SornArray *src,
                           const SornArray *mask, const SornVolume *srcRoi,
                           const SornVolume *maskSite, SornWTSState *state);
/* Slice forms: data is the SornWTSState. */
SornStatus SornTGAwatershed(SornXE *xe, SornFlags flags, void *state, SornDimPack code,
                            int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                            int32_t *strides);
SornStatus SornTGAwatershedEx(SornXE *xe, SornFlags flags, void *state, SornDimPack code,
                              int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                              int32_t *strides, uint32_t masktype, void *maskbase,
                              int32_t *maskloffs, int32_t *maskstrides);
SornStatus sorna_watershed(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                           const int32_t *dims, uint32_t type, const void *base,
                           const int32_t *loffs, const int32_t *strides);
SornStatus sorna_watershed_xm(SornXE *xe, SornFlags flags, SornWTSState *state,
                              SornDimPack code, const int32_t *dims, uint32_t type,
                              const void *base, const int32_t *loffs, const int32_t *strides,
                              uint32_t masktype, const void *maskbase,
                              const int32_t *maskloffs, const int32_t *maskstrides);
SornStatus sorna_fwatershed(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                            const int32_t *dims, uint32_t type, const void *base,
                            const int32_t *loffs, const int32_t *strides);
SornStatus sorna_fwatershed_xm(SornXE *xe, SornFlags flags, SornWTSState *state,
                               SornDimPack code, const int32_t *dims, uint32_t type,
                               const void *base, const int32_t *loffs, const int32_t *strides,
                               uint32_t masktype, const void *maskbase,
                               const int32_t *maskloffs, const int32_t *maskstrides);
/* Dispatchers: base pointers at the first pixel. */
SornStatus sorna__watershed(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                            const int32_t *dims, uint32_t type, const void *src,
                            const int32_t *strides);
SornStatus sorna__watershed_xm(SornXE *xe, SornFlags flags, SornWTSState *state,
                               SornDimPack code, const int32_t *dims, uint32_t type,
                               const void *src, const int32_t *strides, const void *mask,
                               const int32_t *maskstrides);
SornStatus sorna__fwatershed(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                             const int32_t *dims, uint32_t type, const void *src,
                             const int32_t *strides);
SornStatus sorna__fwatershed_xm(SornXE *xe, SornFlags flags, SornWTSState *state,
                                SornDimPack code, const int32_t *dims, uint32_t type,
                                const void *src, const int32_t *strides, const void *mask,
                                const int32_t *maskstrides);
/* Setup of a run on one-channel bytes. */
SornStatus __sorna__watershed_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                    SornDimPack code, const int32_t *dims, const uint8_t *src,
                                    const int32_t *strides);
SornStatus __sorna__watershed_xm_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                       SornDimPack code, const int32_t *dims,
                                       const uint8_t *src, const int32_t *strides,
                                       const uint8_t *mask, const int32_t *maskstrides);
SornStatus __sorna__fwatershed_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                     SornDimPack code, const int32_t *dims, const uint8_t *src,
                                     const int32_t *strides);
SornStatus __sorna__fwatershed_xm_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                        SornDimPack code, const int32_t *dims,
                                        const uint8_t *src, const int32_t *strides,
                                        const uint8_t *mask, const int32_t *maskstrides);
/* The plain flooding. visited is the bit mask at pixel 0 with its guards
 * around it; hist the counts of the levels in the run's polarity. */
SornStatus __T_sorna__watershed_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                      int32_t rows, int32_t columns, int32_t rowstride,
                                      int32_t pixstride, const uint8_t *src, int32_t seedrow,
                                      int32_t seedcolumn, uint8_t *visited,
                                      const SornHist *hist);
/* The f floodings over the working array in the result's links; seedcolumn
 * is taken as it stands. _00 links runs of equal level in one go. */
SornStatus __T_sorna__fwatershed_c1_u8_01(int32_t rows, int32_t columns, int32_t seedrow,
                                          int32_t seedcolumn, SornXE *xe, SornFlags flags,
                                          SornWTSState *state);
SornStatus __T_sorna__fwatershed_c1_u8_00(int32_t rows, int32_t columns, int32_t seedrow,
                                          int32_t seedcolumn, SornXE *xe, SornFlags flags,
                                          SornWTSState *state);
SornFWTSRegion *_T_fwtsregion_pool_new(SornFWTSRegionPool *pool, int32_t tail, int32_t level);

/* ---------------- Maximally stable extremal regions ---------------- */

#define SORN_TAG_MSER SORN_FOURCC('m', 's', 'e', 'r')
#define SORN_TAG_MSRX SORN_FOURCC('m', 's', 'r', 'x')

/* Which floodings a filter runs: the dark pass, the bright pass, or both
 * (any other value). */
#define SORN_MSER_DARK   0
#define SORN_MSER_BRIGHT 1
#define SORN_MSER_BOTH   2
/* The parameters a filter has when it is made without them
 * (__sorn_mserfilt__$feats, __sorn_fmserfilt__$fwtsres), mode
 * SORN_MSER_BOTH; the tool and the comparison start from them too. */
#define SORN_MSER_DEFAULT_DELTA        10
#define SORN_MSER_DEFAULT_MINAREA      0.0001
#define SORN_MSER_DEFAULT_MAXAREA      0.75
#define SORN_MSER_DEFAULT_MAXVARIATION 0.33
#define SORN_MSER_DEFAULT_MINDIVERSITY 0.2

/* Both filter records start with the same parameters. mode to seed have the
 * layout of polarity to seed of a SornWTSState, so that a pass copies them
 * as one block; the pass then sets polarity. */
typedef struct SornMSERFilter {
  uint32_t delta;        /* grey level step of the stability measure (10) */
  float minarea;         /* smallest region, fraction of the image's pixels (0.0001) */
  float maxarea;         /* largest region, likewise (0.75) */
  float maxvariation;    /* largest relative growth over delta levels (0.33) */
  float mindiversity;    /* nested regions closer than this in size: the inner goes (0.2) */
  int32_t minpixels;     /* floor in pixels where minarea gives 0; below 1 means 9 */
  uint32_t gathernow;    /* gather features at once (with flag bit 21 or 22) */
  uint16_t mode;         /* 0 dark pass only, 1 bright pass only, else both */
  uint16_t restore;      /* copied into the run; the bright pass clears it */
  uint16_t connectivity; /* 0 four neighbours, else eight */
  uint16_t shift;        /* f form only */
  uint32_t seed[4];      /* cell 1 the seed row, cell 2 its column */
  SornWTSLSC lsc;        /* the layout of the regions */
  SornVec regions;       /* SornWTSRegion pointers picked, dark ones first */
  uint32_t count1;       /* of the dark pass */
  uint32_t count2;       /* of the bright pass */
  SornWTSRegion **list1; /* where each pass's regions begin in regions.items */
  SornWTSRegion **list2;
  SornSTB *builder1;     /* builders of the passes, null for a pass not made */
  SornSTB *builder2;
  SornWTSFeatureDs mfds; /* one descriptor for the forms that make a moment feature */
} SornMSERFilter;

typedef struct SornFMSERFilter {
  uint32_t delta;
  float minarea;
  float maxarea;
  float maxvariation;
  float mindiversity;
  int32_t minpixels;
  uint32_t gathernow;
  uint16_t mode;
  uint16_t restore;
  uint16_t connectivity;
  uint16_t shift;        /* levels are the values shifted right by this */
  uint32_t seed[4];
  SornVec regions;        /* SornFWTSRegion pointers picked, dark ones first */
  uint32_t count1;
  uint32_t count2;
  SornFWTSRegion **list1;
  SornFWTSRegion **list2;
  uint32_t imdims[4];     /* 1, rows, columns, 1 */
  uint32_t imstrides[4];  /* rows * rowstride, rowstride, 1, 1 */
  SornFWTSRES *res1;      /* results of the passes; null: the embedded ones */
  SornFWTSRES *res2;
  SornFWTSRES res1own;
  SornFWTSRES res2own;
} SornFMSERFilter;

/* What the selection is given. */
typedef struct SornMSERParams {
  int32_t delta;
  int32_t minpixels;
  int32_t maxpixels;
  float maxvariation;
  float mindiversity;
} SornMSERParams;

SornMSERFilter *__sorn_mserfilt__$ex(SornMSERFilter *filter, SornWTSFeatureDs *features,
                                     int32_t nfeatures, int32_t delta, int32_t mode,
                                     int32_t restore, int32_t connectivity, int32_t shift,
                                     const uint32_t *seed, double minarea, double maxarea,
                                     double maxvariation, double mindiversity);
SornMSERFilter *__sorn_mserfilt__$mf(SornMSERFilter *filter, int32_t delta, int32_t mode,
                                     int32_t restore, int32_t connectivity, int32_t shift,
                                     const uint32_t *seed, double minarea, double maxarea,
                                     double maxvariation, double mindiversity);
SornMSERFilter *__sorn_mserfilt__$feats(SornMSERFilter *filter, SornWTSFeatureDs *features,
                                        int32_t nfeatures);
SornMSERFilter *__sorn_mserfilt__$(SornMSERFilter *filter);
SornMSERFilter *sorn_mserf_destroy(SornMSERFilter *filter);

SornFMSERFilter *__sorn_fmserfilt__$ex(SornFMSERFilter *filter, SornFWTSRES *res1,
                                       SornFWTSRES *res2, int32_t delta, int32_t mode,
                                       int32_t restore, int32_t connectivity, int32_t shift,
                                       const uint32_t *seed, double minarea, double maxarea,
                                       double maxvariation, double mindiversity);
SornFMSERFilter *__sorn_fmserfilt__$fwtsres(SornFMSERFilter *filter, SornFWTSRES *res1,
                                            SornFWTSRES *res2);
SornFMSERFilter *__sorn_fmserfilt__$(SornFMSERFilter *filter);
SornFMSERFilter *sorn_fmserf_destroy(SornFMSERFilter *filter);
SornFMSERFilter *sorn_fmserf_setimvol_$2d(SornFMSERFilter *filter, int32_t rows,
                                          int32_t columns, int32_t rowstride);
SornFMSERFilter *sorn_fmserf_setimvol(SornFMSERFilter *filter, SornDimPack code,
                                      const int32_t *dims, const int32_t *strides);

SornStatus SornGenerateMSERs(SornXE *xe, SornFlags flags, const SornArray *src,
                             const SornVolume *srcRoi, SornMSERFilter *filter);
SornStatus SornGenerateMSERsEx(SornXE *xe, SornFlags flags, const SornArray *src,
                               const SornArray *mask, const SornVolume *srcRoi,
                               const SornVolume *maskSite, SornMSERFilter *filter);
SornStatus SornGenerateFMSERs(SornXE *xe, SornFlags flags, const SornArray *src,
                              const SornVolume *srcRoi, SornFMSERFilter *filter);
SornStatus SornGenerateFMSERsEx(SornXE *xe, SornFlags flags, const SornArray *src,
                                const SornArray *mask, const SornVolume *srcRoi,
                                const SornVolume *maskSite, SornFMSERFilter *filter);
/* Slice forms: data is the filter. */
SornStatus SornTGAgenerateMSERs(SornXE *xe, SornFlags flags, void *filter, SornDimPack code,
                                int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                                int32_t *strides);
SornStatus SornTGAgenerateMSERsEx(SornXE *xe, SornFlags flags, void *filter, SornDimPack code,
                                  int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                                  int32_t *strides, uint32_t masktype, void *maskbase,
                                  int32_t *maskloffs, int32_t *maskstrides);
SornStatus SornTGAgenerateFMSERs(SornXE *xe, SornFlags flags, void *filter, SornDimPack code,
                                 int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                                 int32_t *strides);
SornStatus SornTGAgenerateFMSERsEx(SornXE *xe, SornFlags flags, void *filter,
                                   SornDimPack code, int32_t *dims, uint32_t type, void *base,
                                   int32_t *loffs, int32_t *strides, uint32_t masktype,
                                   void *maskbase, int32_t *maskloffs, int32_t *maskstrides);
SornStatus sorna_mser(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                      uint32_t type, const void *base, const int32_t *loffs,
                      const int32_t *strides, SornMSERFilter *filter);
SornStatus sorna_mser_xm(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                         uint32_t type, const void *base, const int32_t *loffs,
                         const int32_t *strides, const void *maskbase,
                         const int32_t *maskloffs, const int32_t *maskstrides,
                         SornMSERFilter *filter);
SornStatus sorna_fmser(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                       uint32_t type, const void *base, const int32_t *loffs,
                       const int32_t *strides, SornFMSERFilter *filter);
SornStatus sorna_fmser_xm(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                          uint32_t type, const void *base, const int32_t *loffs,
                          const int32_t *strides, const void *maskbase,
                          const int32_t *maskloffs, const int32_t *maskstrides,
                          SornFMSERFilter *filter);

/* Selection: append the picked regions to vector (a SornVec of region
 * pointers) and give vector. */
SornVec *SornDetectMSERs(SornVec *vector, const SornSTree *tree, const SornMSERParams *params);
SornVec *SornDetectFMSERs(SornVec *vector, SornFWTSRegion *rootregion,
                          const SornMSERParams *params);
/* The recursions: 1 if the region was picked. */
int32_t _T_DetectMSERs(SornVec *vector, SornAGTnode *node, const SornMSERParams *params);
int32_t _T_DetectFMSERs(SornVec *vector, SornFWTSRegion *region, const SornMSERParams *params);
/* Unpick the picked regions below region, starting at list, that are closer
 * to it in size than threshold; plain form on nodes, f form on regions. */
void _T_RemoveMSERDuplicates(SornAGTnode *node, SornAGTnode *list, float threshold);
void _T_RemoveDuplicates(SornFWTSRegion *region, SornFWTSRegion *list, float threshold);

/* Gathering the features of picked regions of the plain form. which: above
 * 0 the dark pass, below 0 the bright pass, 0 look the region up. */
SornStatus SornMSERgatherFeatures(SornMSERFilter *filter);
SornStatus SornMSERgatherFeaturesOfRegion(SornMSERFilter *filter, SornWTSRegion *region,
                                          int32_t which);
SornStatus SornMSERgatherFeatureOfRegion(SornMSERFilter *filter, SornWTSRegion *region,
                                         int32_t which, int32_t index, uint32_t magic);
SornWTSRegion **SornGatherMSERsFeatures(SornWTSRegion **list, int32_t n, SornSTB *builder,
                                        SornWTSLSC *lsc);
SornWTSRegion *SornGatherMSERFeatures(SornWTSRegion *region, SornSTB *builder,
                                      SornWTSLSC *lsc);
SornWTSRegion *SornGatherMSERFeature(SornWTSRegion *region, SornSTB *builder, SornWTSLSC *lsc,
                                     int32_t index, uint32_t magic);

/* ---------------- Measures of fetched regions ----------------
 * Each measure appends to out (a SornVec of records, grown as needed) one
 * record per SornFwtsrPixReg of pixregs, over all `size` points of the
 * region, its descendants' included. Points are (row, column): the first
 * coordinate is the row. A vector that cannot grow gets only the records
 * that fit. Records: */
/* SornWTSMF: count, then the sums of r, c, r r, r c, c c, taken exactly in
 * 64-bit integers and converted per region (an empty region: zeros). */
SornVec *sorn_fwtsr_mf_$2d(SornVec *out, const SornVec *pixregs);
SornVec *sorn_fwtsr_m1_$2d(SornVec *out, const SornVec *pixregs);   /* SornR2dPt */
SornVec *sorn_fwtsr_m2_$2d(SornVec *out, const SornVec *pixregs);   /* SornMoment2 */
SornVec *sorn_fwtsr_m2c_$2d(SornVec *out, const SornVec *pixregs);  /* SornMoment2 */
SornVec *sorn_fwtsr_brect_$2d(SornVec *out, const SornVec *pixregs); /* Sorn2dRect */
SornVec *sorn_fwtsr_minbquad_$f2d(SornVec *out, const SornVec *pixregs); /* SornF2dQuad */
SornVec *sorn_fwtsr_minbquad_$r2d(SornVec *out, const SornVec *pixregs); /* SornR2dQuad */
/* The ellipse of the central moments, scale 2: SornF2dEll or SornR2dEll. */
SornVec *sorn_fwtsr_ellipse_$f2d(SornVec *out, const SornVec *pixregs);
SornVec *sorn_fwtsr_ellipse_$r2d(SornVec *out, const SornVec *pixregs);
/* One region: count, then the means (not the sums) of r, c, r r, r c, c c. */
SornWTSMF *sorn_fwtsr_mf1_$2d(SornWTSMF *out, const SornFwtsrPixReg *pixreg);

/* The picked regions of a SornFMSERFilter fetched, or fetched and measured,
 * in one call. which: 0 the dark pass, 1 the bright pass, any other value
 * both, dark first. The answer is the number of regions delivered: 0 when
 * the chosen passes have no result or no region. The measuring forms fetch
 * anew on every call into blocks of their own, which they give back. */
int32_t sorn_fmserf_pixreg_$2d(const SornFMSERFilter *filter, SornVec *regs, SornVec *points,
                               int32_t which);
int32_t sorn_fmserf_mf_$2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_m1_$2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_m2_$2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_m2c_$2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_brect_$2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_minbquad_$f2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_minbquad_$r2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_ellipse_$f2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);
int32_t sorn_fmserf_ellipse_$r2d(const SornFMSERFilter *filter, SornVec *out, int32_t which);

/* ======================================================================
 * Plane geometry
 * ====================================================================== */

/* Three coordinate families, told by the prefix of a name: 2d (s32 cells),
 * f2d (f32) and r2d (f64). A suffix $i, $f or $r names the family on the
 * other side of a conversion, $I an in-place form, $c central moments.
 * The first coordinate is called x and the second y; in the region analysis
 * x is the row.
 *
 * Every function here is pure: it writes only its output (the first
 * argument) and answers that output, or a value. There are no statuses and
 * no checks: degenerate input gives what the arithmetic gives (an empty
 * list's moments are not numbers, for one). Where a null pointer is allowed
 * the comment says so. */

/* Sorn2dPt, the integer point, is declared with the region results above. */
typedef struct SornF2dPt {
  float x, y;
} SornF2dPt;
typedef struct SornR2dPt {
  double x, y;
} SornR2dPt;

/* A rectangle by its origin and extents. */
typedef struct Sorn2dRect {
  int32_t x, y, width, height;
} Sorn2dRect;
typedef struct SornF2dRect {
  float x, y, width, height;
} SornF2dRect;
typedef struct SornR2dRect {
  double x, y, width, height;
} SornR2dRect;

/* A rectangle by two corners. */
typedef struct Sorn2dRcpt {
  int32_t x0, y0, x1, y1;
} Sorn2dRcpt;
typedef struct SornF2dRcpt {
  float x0, y0, x1, y1;
} SornF2dRcpt;
typedef struct SornR2dRcpt {
  double x0, y0, x1, y1;
} SornR2dRcpt;

/* Four corners; from a rectangle they go (x0, y0), (x0, y1), (x1, y1),
 * (x1, y0). There is no integer quadrilateral. */
typedef struct SornF2dQuad {
  SornF2dPt q[4];
} SornF2dQuad;
typedef struct SornR2dQuad {
  SornR2dPt q[4];
} SornR2dQuad;

/* An ellipse: centre, semi-axes a and b, rotation in radians. At rotation
 * 0, a lies along the first coordinate; from moments, b is the longer one. */
typedef struct SornF2dEll {
  float cx, cy, a, b, rotation;
} SornF2dEll;
typedef struct SornR2dEll {
  double cx, cy, a, b, rotation;
} SornR2dEll;

/* Second moments. */
typedef struct SornMoment2 {
  double m20, m11, m02;
} SornMoment2;

/* ---------------- Moments and small solvers ----------------
 * Pairs of roots and eigenvalues come smaller first. A symmetric 2x2 matrix
 * is four cells a, b, b, d (the second b is not read). */

double *sorn_f64_quadequ_solve(double *out, double a, double b, double c);
double *sorn_f64_quadequ_solve_$mm(double *out, const double *coeffs);
double *sorn_f64_quadequ_solve_$simple(double *out, double p, double q);
double *sorn_f64_symmat2x2_eigvals(double *out, const double *m);
/* The x forms answer the rotation, atan2(2 b, d - a) / 2. */
double sorn_f64_symmat2x2_xeigvals(double *out, const double *m);
/* centre: the first moments. */
SornMoment2 *sorn_r2d_moment2_centralize(SornMoment2 *out, const SornMoment2 *m,
                                         const SornR2dPt *centre);
SornMoment2 *sorn_r2d_moment2_centralize_$I(SornMoment2 *m, const SornR2dPt *centre);
/* Rotation 0 for a set elongated along the second coordinate. */
double sorn_r2d_moment2c_rotation(const SornMoment2 *m);
double *sorn_r2d_moment2c_covariance(double *out, const SornMoment2 *m);
double *sorn_r2d_moment2c_eigvals(double *out, const SornMoment2 *m);
double sorn_r2d_moment2c_xeigvals(double *out, const SornMoment2 *m);

/* ---------------- Points and rectangles ---------------- */

/* With a null base, out moves by (dx, dy); else out = base + (dx, dy). */
Sorn2dPt *sorn_2d_pt_advance(Sorn2dPt *out, const Sorn2dPt *base, int32_t dx, int32_t dy);
/* out = (dx, dy), plus base when there is one. */
Sorn2dPt *sorn_2d_pt_setadv(Sorn2dPt *out, const Sorn2dPt *base, int32_t dx, int32_t dy);

/* Conversions between the two rectangle forms; a null source, or one that
 * is out, converts out in place. */
Sorn2dRcpt *sorn_2d_rcpt_convert(Sorn2dRcpt *out, const Sorn2dRect *rect);
Sorn2dRect *sorn_2d_rect_convert(Sorn2dRect *out, const Sorn2dRcpt *rcpt);
SornF2dRcpt *sorn_f2d_rcpt_convert(SornF2dRcpt *out, const SornF2dRect *rect);
SornF2dRect *sorn_f2d_rect_convert(SornF2dRect *out, const SornF2dRcpt *rcpt);
SornR2dRcpt *sorn_r2d_rcpt_convert(SornR2dRcpt *out, const SornR2dRect *rect);
SornR2dRect *sorn_r2d_rect_convert(SornR2dRect *out, const SornR2dRcpt *rcpt);

/* general is the union. intersec takes the larger value in all four cells,
 * the far corner included: its result reaches as far as the further of the
 * two, by definition. A null a is out. */
Sorn2dRcpt *sorn_2d_rcpt_intersec(Sorn2dRcpt *out, const Sorn2dRcpt *a, const Sorn2dRcpt *b);
Sorn2dRcpt *sorn_2d_rcpt_general(Sorn2dRcpt *out, const Sorn2dRcpt *a, const Sorn2dRcpt *b);
SornF2dRcpt *sorn_f2d_rcpt_intersec(SornF2dRcpt *out, const SornF2dRcpt *a, const SornF2dRcpt *b);
SornF2dRcpt *sorn_f2d_rcpt_general(SornF2dRcpt *out, const SornF2dRcpt *a, const SornF2dRcpt *b);
SornR2dRcpt *sorn_r2d_rcpt_intersec(SornR2dRcpt *out, const SornR2dRcpt *a, const SornR2dRcpt *b);
SornR2dRcpt *sorn_r2d_rcpt_general(SornR2dRcpt *out, const SornR2dRcpt *a, const SornR2dRcpt *b);
/* The same through corners; the $I forms take out as a. */
Sorn2dRect *sorn_2d_rect_intersec(Sorn2dRect *out, const Sorn2dRect *a, const Sorn2dRect *b);
Sorn2dRect *sorn_2d_rect_intersec_$I(Sorn2dRect *out, const Sorn2dRect *b);
Sorn2dRect *sorn_2d_rect_general(Sorn2dRect *out, const Sorn2dRect *a, const Sorn2dRect *b);
Sorn2dRect *sorn_2d_rect_general_$I(Sorn2dRect *out, const Sorn2dRect *b);
SornF2dRect *sorn_f2d_rect_intersec(SornF2dRect *out, const SornF2dRect *a, const SornF2dRect *b);
SornF2dRect *sorn_f2d_rect_intersec_$I(SornF2dRect *out, const SornF2dRect *b);
SornF2dRect *sorn_f2d_rect_general(SornF2dRect *out, const SornF2dRect *a, const SornF2dRect *b);
SornF2dRect *sorn_f2d_rect_general_$I(SornF2dRect *out, const SornF2dRect *b);
SornR2dRect *sorn_r2d_rect_intersec(SornR2dRect *out, const SornR2dRect *a, const SornR2dRect *b);
SornR2dRect *sorn_r2d_rect_intersec_$I(SornR2dRect *out, const SornR2dRect *b);
SornR2dRect *sorn_r2d_rect_general(SornR2dRect *out, const SornR2dRect *a, const SornR2dRect *b);
SornR2dRect *sorn_r2d_rect_general_$I(SornR2dRect *out, const SornR2dRect *b);

/* Moments of a rectangle: the centre (moment1), and second moments that
 * are area moments, not divided by the area, with m20 from the second
 * extent and m02 from the first: both deliberate. The centroid forms
 * compute the centre in f32. */
SornR2dPt *sorn_2d_rcpt_moment1(SornR2dPt *out, const Sorn2dRcpt *r);
SornMoment2 *sorn_2d_rcpt_moment2(SornMoment2 *out, const Sorn2dRcpt *r);
SornMoment2 *sorn_2d_rcpt_moment2_$c(SornMoment2 *out, const Sorn2dRcpt *r);
SornF2dPt *sorn_2d_rcpt_centroid_$f(SornF2dPt *out, const Sorn2dRcpt *r);
SornR2dPt *sorn_f2d_rcpt_moment1(SornR2dPt *out, const SornF2dRcpt *r);
SornMoment2 *sorn_f2d_rcpt_moment2(SornMoment2 *out, const SornF2dRcpt *r);
SornMoment2 *sorn_f2d_rcpt_moment2_$c(SornMoment2 *out, const SornF2dRcpt *r);
SornF2dPt *sorn_f2d_rcpt_centroid(SornF2dPt *out, const SornF2dRcpt *r);
SornR2dPt *sorn_r2d_rcpt_moment1(SornR2dPt *out, const SornR2dRcpt *r);
SornMoment2 *sorn_r2d_rcpt_moment2(SornMoment2 *out, const SornR2dRcpt *r);
SornMoment2 *sorn_r2d_rcpt_moment2_$c(SornMoment2 *out, const SornR2dRcpt *r);
SornR2dPt *sorn_2d_rect_moment1(SornR2dPt *out, const Sorn2dRect *r);
SornMoment2 *sorn_2d_rect_moment2(SornMoment2 *out, const Sorn2dRect *r);
SornMoment2 *sorn_2d_rect_moment2_$c(SornMoment2 *out, const Sorn2dRect *r);
SornF2dPt *sorn_2d_rect_centroid_$f(SornF2dPt *out, const Sorn2dRect *r);
SornR2dPt *sorn_f2d_rect_moment1(SornR2dPt *out, const SornF2dRect *r);
SornMoment2 *sorn_f2d_rect_moment2(SornMoment2 *out, const SornF2dRect *r);
SornMoment2 *sorn_f2d_rect_moment2_$c(SornMoment2 *out, const SornF2dRect *r);
SornF2dPt *sorn_f2d_rect_centroid(SornF2dPt *out, const SornF2dRect *r);
SornR2dPt *sorn_r2d_rect_moment1(SornR2dPt *out, const SornR2dRect *r);
SornMoment2 *sorn_r2d_rect_moment2(SornMoment2 *out, const SornR2dRect *r);
SornMoment2 *sorn_r2d_rect_moment2_$c(SornMoment2 *out, const SornR2dRect *r);

/* border: four cells left, top, right, bottom. A null rect extends out in
 * place. */
Sorn2dRect *sorn_2d_rect_extend(Sorn2dRect *out, const Sorn2dRect *rect, const int32_t *border);
Sorn2dRect *sorn_2d_rect_extend_$I(Sorn2dRect *out, const int32_t *border);
/* extended gets rect widened by border, out its intersec with limit. The
 * answer: 1 if extended is at most as wide and as high as out, else 0. */
int sorn_2d_rect_rextend(Sorn2dRect *out, Sorn2dRect *extended, const Sorn2dRect *rect,
                         const int32_t *border, const Sorn2dRect *limit);
/* rect (null: out) grown by dx, dy on every side, then intersec with
 * (0, 0, width, height). */
Sorn2dRect *sorn_2d_rect_srextend(Sorn2dRect *out, const Sorn2dRect *rect, int32_t dx, int32_t dy,
                                  int32_t width, int32_t height);

/* 1 if (x, y) lies in the rectangle, both edges included. */
int sorn_f2d_rect_inside2(const SornF2dRect *rect, float x, float y);
int sorn_r2d_rect_inside2(const SornR2dRect *rect, double x, double y);

/* ---------------- Quadrilaterals ---------------- */

SornF2dQuad *__sorn_f2d_quad__$rcpt(SornF2dQuad *out, const SornF2dRcpt *r);
SornF2dQuad *__sorn_f2d_quad__$rcpt$i(SornF2dQuad *out, const Sorn2dRcpt *r);
SornF2dQuad *__sorn_f2d_quad__$rcpt$r(SornF2dQuad *out, const SornR2dRcpt *r);
SornF2dQuad *__sorn_f2d_quad__$rect(SornF2dQuad *out, const SornF2dRect *r);
SornF2dQuad *__sorn_f2d_quad__$rect$i(SornF2dQuad *out, const Sorn2dRect *r);
SornF2dQuad *__sorn_f2d_quad__$rect$r(SornF2dQuad *out, const SornR2dRect *r);
SornF2dQuad *__sorn_f2d_quad__$cast$r(SornF2dQuad *out, const SornR2dQuad *q);
SornR2dQuad *__sorn_r2d_quad__$rcpt(SornR2dQuad *out, const SornR2dRcpt *r);
SornR2dQuad *__sorn_r2d_quad__$rcpt$i(SornR2dQuad *out, const Sorn2dRcpt *r);
SornR2dQuad *__sorn_r2d_quad__$rcpt$f(SornR2dQuad *out, const SornF2dRcpt *r);
SornR2dQuad *__sorn_r2d_quad__$rect(SornR2dQuad *out, const SornR2dRect *r);
SornR2dQuad *__sorn_r2d_quad__$rect$i(SornR2dQuad *out, const Sorn2dRect *r);
SornR2dQuad *__sorn_r2d_quad__$rect$f(SornR2dQuad *out, const SornF2dRect *r);
SornR2dQuad *__sorn_r2d_quad__$cast$f(SornR2dQuad *out, const SornF2dQuad *q);

/* Width: from q0 to q1; height: from q0 to q3; in the family's float type.
 * The area is the product of the two, in f64; the rotation is
 * atan2(q1.x - q0.x, q1.y - q0.y), 0 for a quad from a rectangle. */
float sorn_f2d_quad_width_sqr(const SornF2dQuad *q);
float sorn_f2d_quad_width(const SornF2dQuad *q);
float sorn_f2d_quad_height_sqr(const SornF2dQuad *q);
float sorn_f2d_quad_height(const SornF2dQuad *q);
double sorn_f2d_quad_area(const SornF2dQuad *q);
double sorn_f2d_quad_rotation(const SornF2dQuad *q);
double sorn_r2d_quad_width_sqr(const SornR2dQuad *q);
double sorn_r2d_quad_width(const SornR2dQuad *q);
double sorn_r2d_quad_height_sqr(const SornR2dQuad *q);
double sorn_r2d_quad_height(const SornR2dQuad *q);
double sorn_r2d_quad_area(const SornR2dQuad *q);
double sorn_r2d_quad_rotation(const SornR2dQuad *q);

/* ---------------- Ellipses ---------------- */

/* From central second moments (or a four-cell covariance): the semi-axes
 * are the square roots of the eigenvalues times scale, smaller one a; the
 * library's own callers pass a scale of 2.0, which gives back the semi-axes
 * of a filled ellipse from its normalised moments. */
SornF2dEll *__sorn_f2d_ellipse__$moment2$c(SornF2dEll *out, const SornF2dPt *centre,
                                           const SornMoment2 *m, double scale);
SornF2dEll *__sorn_f2d_ellipse__$covariance(SornF2dEll *out, const SornF2dPt *centre,
                                            const double *cov, double scale);
SornF2dEll *__sorn_f2d_ellipse__$cast$r(SornF2dEll *out, const SornR2dEll *e);
SornR2dEll *__sorn_r2d_ellipse__$moment2$c(SornR2dEll *out, const SornR2dPt *centre,
                                           const SornMoment2 *m, double scale);
SornR2dEll *__sorn_r2d_ellipse__$covariance(SornR2dEll *out, const SornR2dPt *centre,
                                            const double *cov, double scale);
SornR2dEll *__sorn_r2d_ellipse__$cast$f(SornR2dEll *out, const SornF2dEll *e);

/* Area pi a b. The moments are area moments that take no account of the
 * rotation, m20 from b and m02 from a, like those of a rectangle. */
double sorn_f2d_ell_area(const SornF2dEll *e);
SornMoment2 *sorn_f2d_ell_moment2(SornMoment2 *out, const SornF2dEll *e);
SornMoment2 *sorn_f2d_ell_moment2_$c(SornMoment2 *out, const SornF2dEll *e);
/* The axis-aligned rectangle around the ellipse. */
SornF2dRect *sorn_f2d_ell_brect(SornF2dRect *out, const SornF2dEll *e);
/* The rotated box of the axes: corners for (u, v) = (-a, -b), (-a, b),
 * (a, b), (a, -b) at (cx + u cos + v sin, cy - u sin + v cos). */
SornF2dQuad *sorn_f2d_ell_bquad(SornF2dQuad *out, const SornF2dEll *e);
SornR2dQuad *sorn_f2d_ell_bquad_$r(SornR2dQuad *out, const SornF2dEll *e);
/* 1 inside or on the ellipse. It turns by the rotation in the sense
 * opposite to that of the bquad: both are kept as they are. */
int sorn_f2d_ell_inside2(const SornF2dEll *e, float x, float y);
double sorn_r2d_ell_area(const SornR2dEll *e);
SornMoment2 *sorn_r2d_ell_moment2(SornMoment2 *out, const SornR2dEll *e);
SornMoment2 *sorn_r2d_ell_moment2_$c(SornMoment2 *out, const SornR2dEll *e);
SornR2dRect *sorn_r2d_ell_brect(SornR2dRect *out, const SornR2dEll *e);
SornR2dQuad *sorn_r2d_ell_bquad(SornR2dQuad *out, const SornR2dEll *e);
SornF2dQuad *sorn_r2d_ell_bquad_$f(SornF2dQuad *out, const SornR2dEll *e);
int sorn_r2d_ell_inside2(const SornR2dEll *e, double x, double y);

/* ---------------- Point lists ----------------
 * A point list is an array of points and an s32 count. The float families
 * compare with the tolerance 2^-23 (as an f64 value), the integer family
 * exactly, with sums in 64 bits. Hulls come out in the order of the sort:
 * around the lowest point (smallest x, then smallest y), by the angle
 * atan2(dx, dy). */

/* Half the sum of cur.x prev.y - prev.x cur.y around the ring; a list that
 * turns from x toward y gives a negative value. 0 below two points. */
double sorn_2d_ptv___sarea(const Sorn2dPt *points, int32_t n);
double sorn_f2d_ptv___sarea(const SornF2dPt *points, int32_t n);
double sorn_r2d_ptv___sarea(const SornR2dPt *points, int32_t n);
/* 1 if every turn has the sense of the first one; only the first turn is
 * the reference. 0 below three points. */
int sorn_2d_ptv_isconvex(const Sorn2dPt *points, int32_t n);
int sorn_f2d_ptv_isconvex(const SornF2dPt *points, int32_t n);
int sorn_r2d_ptv_isconvex(const SornR2dPt *points, int32_t n);
/* 1 if every three neighbours lie on a line (not around the ring); 1 below
 * three points. */
int sorn_2d_ptv_all_colinear(const Sorn2dPt *points, int32_t n);
int sorn_f2d_ptv_all_colinear(const SornF2dPt *points, int32_t n);
int sorn_r2d_ptv_all_colinear(const SornR2dPt *points, int32_t n);
/* The point of smallest x, and of smallest y among equal x; points itself
 * below two points. */
const Sorn2dPt *sorn_2d_ptv_lowest(const Sorn2dPt *points, int32_t n);
const SornF2dPt *sorn_f2d_ptv_lowest(const SornF2dPt *points, int32_t n);
const SornR2dPt *sorn_r2d_ptv_lowest(const SornR2dPt *points, int32_t n);
/* Sorts around the lowest point, by angle and then by distance; no
 * recursion and no allocation. */
Sorn2dPt *sorn_2d_ptv_sort_$I(Sorn2dPt *points, int32_t n);
SornF2dPt *sorn_f2d_ptv_sort_$I(SornF2dPt *points, int32_t n);
SornR2dPt *sorn_r2d_ptv_sort_$I(SornR2dPt *points, int32_t n);
/* The comparison of the sort: below 0 when a goes before b. The plain name
 * is the f2d form. */
int32_t _T_ptv_sort_compare(const SornF2dPt *a, const SornF2dPt *b, const SornF2dPt *pivot);
int32_t _T_2d_ptv_sort_compare(const Sorn2dPt *a, const Sorn2dPt *b, const Sorn2dPt *pivot);
int32_t _T_r2d_ptv_sort_compare(const SornR2dPt *a, const SornR2dPt *b, const SornR2dPt *pivot);

/* Convex hulls; each answers the hull's point count. The in-place form
 * leaves fewer than four points as they are, and keeps all points (sorted)
 * when they lie on one line. convexhull copies the n points to out first
 * (0 for n below 1). aconvexhull sets *outpointer to null, then for n of 1
 * or more works in a block from malloc, which the caller gives back with
 * free; it answers 0 when there is no block. */
int32_t sorn_2d_ptv_convexhull_$I(Sorn2dPt *points, int32_t n);
int32_t sorn_2d_ptv_convexhull(Sorn2dPt *out, const Sorn2dPt *points, int32_t n);
int32_t sorn_2d_ptv_aconvexhull(Sorn2dPt **outpointer, const Sorn2dPt *points, int32_t n);
int32_t sorn_f2d_ptv_convexhull_$I(SornF2dPt *points, int32_t n);
int32_t sorn_f2d_ptv_convexhull(SornF2dPt *out, const SornF2dPt *points, int32_t n);
int32_t sorn_f2d_ptv_aconvexhull(SornF2dPt **outpointer, const SornF2dPt *points, int32_t n);
int32_t sorn_r2d_ptv_convexhull_$I(SornR2dPt *points, int32_t n);
int32_t sorn_r2d_ptv_convexhull(SornR2dPt *out, const SornR2dPt *points, int32_t n);
int32_t sorn_r2d_ptv_aconvexhull(SornR2dPt **outpointer, const SornR2dPt *points, int32_t n);

/* Means of x and y (moment1), of x x, x y, y y (moment2), the central
 * moments, and those as four cells m20, m11, m11, m02. An empty list gives
 * values that are not numbers. */
SornR2dPt *sorn_2d_ptv_moment1(SornR2dPt *out, const Sorn2dPt *points, int32_t n);
SornMoment2 *sorn_2d_ptv_moment2(SornMoment2 *out, const Sorn2dPt *points, int32_t n);
SornMoment2 *sorn_2d_ptv_moment2_$c(SornMoment2 *out, const Sorn2dPt *points, int32_t n);
double *sorn_2d_ptv_covariance(double *out, const Sorn2dPt *points, int32_t n);
SornR2dPt *sorn_f2d_ptv_moment1(SornR2dPt *out, const SornF2dPt *points, int32_t n);
SornMoment2 *sorn_f2d_ptv_moment2(SornMoment2 *out, const SornF2dPt *points, int32_t n);
SornMoment2 *sorn_f2d_ptv_moment2_$c(SornMoment2 *out, const SornF2dPt *points, int32_t n);
double *sorn_f2d_ptv_covariance(double *out, const SornF2dPt *points, int32_t n);
SornR2dPt *sorn_r2d_ptv_moment1(SornR2dPt *out, const SornR2dPt *points, int32_t n);
SornMoment2 *sorn_r2d_ptv_moment2(SornMoment2 *out, const SornR2dPt *points, int32_t n);
SornMoment2 *sorn_r2d_ptv_moment2_$c(SornMoment2 *out, const SornR2dPt *points, int32_t n);
double *sorn_r2d_ptv_covariance(double *out, const SornR2dPt *points, int32_t n);
/* The mean point, as f32, or for sorn_2d_ptv_centroid rounded to s32. */
Sorn2dPt *sorn_2d_ptv_centroid(Sorn2dPt *out, const Sorn2dPt *points, int32_t n);
SornF2dPt *sorn_2d_ptv_centroid_$f(SornF2dPt *out, const Sorn2dPt *points, int32_t n);
SornF2dPt *sorn_f2d_ptv_centroid(SornF2dPt *out, const SornF2dPt *points, int32_t n);
SornF2dPt *sorn_r2d_ptv_centroid_$f(SornF2dPt *out, const SornR2dPt *points, int32_t n);

/* Bounding rectangle (extents without a plus one) and the same as a quad.
 * An empty list gives the start values of the scan: the largest value of
 * the scan's type as the smallest coordinate and the lowest as the largest
 * (so an empty sorn_2d_ptv_brect is (0x7FFFFFFF, 0x7FFFFFFF, 1, 1)). */
Sorn2dRect *sorn_2d_ptv_brect(Sorn2dRect *out, const Sorn2dPt *points, int32_t n);
SornF2dRect *sorn_f2d_ptv_brect(SornF2dRect *out, const SornF2dPt *points, int32_t n);
SornR2dRect *sorn_r2d_ptv_brect(SornR2dRect *out, const SornR2dPt *points, int32_t n);
SornF2dQuad *sorn_2d_ptv_bquad_$f(SornF2dQuad *out, const Sorn2dPt *points, int32_t n);
SornR2dQuad *sorn_2d_ptv_bquad_$r(SornR2dQuad *out, const Sorn2dPt *points, int32_t n);
SornF2dQuad *sorn_f2d_ptv_bquad(SornF2dQuad *out, const SornF2dPt *points, int32_t n);
SornR2dQuad *sorn_f2d_ptv_bquad_$r(SornR2dQuad *out, const SornF2dPt *points, int32_t n);
SornR2dQuad *sorn_r2d_ptv_bquad(SornR2dQuad *out, const SornR2dPt *points, int32_t n);
SornF2dQuad *sorn_r2d_ptv_bquad_$f(SornF2dQuad *out, const SornR2dPt *points, int32_t n);

/* The bounding quadrilateral of least area, by rotating calipers over the
 * convex hull: null for n below 1, the bquad below three points or for a
 * hull of one or two points, null when the hull's block could not be had.
 * Lists of up to 32 points need no allocation. The __ forms run the
 * calipers on a hull of three points or more, in f64. */
SornF2dQuad *sorn_2d_ptv_minbquad_$f(SornF2dQuad *out, const Sorn2dPt *points, int32_t n);
SornR2dQuad *sorn_2d_ptv_minbquad_$r(SornR2dQuad *out, const Sorn2dPt *points, int32_t n);
SornR2dQuad *sorn_2d_ptv__minbquad_$r(SornR2dQuad *out, const Sorn2dPt *hull, int32_t n);
SornF2dQuad *sorn_f2d_ptv_minbquad(SornF2dQuad *out, const SornF2dPt *points, int32_t n);
SornR2dQuad *sorn_f2d_ptv_minbquad_$r(SornR2dQuad *out, const SornF2dPt *points, int32_t n);
SornR2dQuad *sorn_f2d_ptv__minbquad_$r(SornR2dQuad *out, const SornF2dPt *hull, int32_t n);
SornR2dQuad *sorn_r2d_ptv_minbquad(SornR2dQuad *out, const SornR2dPt *points, int32_t n);
SornF2dQuad *sorn_r2d_ptv_minbquad_$f(SornF2dQuad *out, const SornR2dPt *points, int32_t n);
SornR2dQuad *sorn_r2d_ptv__minbquad(SornR2dQuad *out, const SornR2dPt *hull, int32_t n);
/* One step of the calipers: of the jaw pair[0] and its opposite, the one or
 * two whose next edge turns least; answers how many, written to pair. jaws
 * holds the four vertex indexes. The plain name is the f2d form. */
int32_t _T_calipers__dorotjawsel(int32_t *pair, const int32_t *jaws, const SornF2dPt *hull,
                                 int32_t n);
int32_t _T_2d_calipers__dorotjawsel(int32_t *pair, const int32_t *jaws, const Sorn2dPt *hull,
                                    int32_t n);
int32_t _T_r2d_calipers__dorotjawsel(int32_t *pair, const int32_t *jaws, const SornR2dPt *hull,
                                     int32_t n);

/* ---------------- Polygons ----------------
 * A point list read as a closed ring. */

/* Even-odd crossing of a ray along the second coordinate: an edge counts
 * when x lies in its half-open span, and flips the answer when (x, y) lies
 * above it in y. So of the boundary, the sides of largest x and of largest
 * y count in, the others out. 0 below two points. */
int sorn_2d_poly_inside2(const Sorn2dPt *points, int32_t n, int32_t x, int32_t y);
int sorn_f2d_poly_inside2(const SornF2dPt *points, int32_t n, float x, float y);
int sorn_r2d_poly_inside2(const SornR2dPt *points, int32_t n, double x, double y);
/* The absolute signed area. */
double sorn_2d_poly_area(const Sorn2dPt *points, int32_t n);
double sorn_f2d_poly_area(const SornF2dPt *points, int32_t n);
double sorn_r2d_poly_area(const SornR2dPt *points, int32_t n);
/* Moments of the enclosed area over the ring's edges but the one from the
 * second last point to the last, which the walk leaves out by definition.
 * moment1 of fewer than two points is zeros; a ring of zero area gives
 * values that are not numbers. */
SornR2dPt *sorn_2d_poly_moment1(SornR2dPt *out, const Sorn2dPt *points, int32_t n);
SornMoment2 *sorn_2d_poly_moment2(SornMoment2 *out, const Sorn2dPt *points, int32_t n);
SornMoment2 *sorn_2d_poly_moment2_$c(SornMoment2 *out, const Sorn2dPt *points, int32_t n);
double *sorn_2d_poly_covariance(double *out, const Sorn2dPt *points, int32_t n);
Sorn2dPt *sorn_2d_poly_centroid(Sorn2dPt *out, const Sorn2dPt *points, int32_t n);
SornF2dPt *sorn_2d_poly_centroid_$f(SornF2dPt *out, const Sorn2dPt *points, int32_t n);
double sorn_2d_poly_rotation(const Sorn2dPt *points, int32_t n);
SornF2dEll *sorn_2d_poly_fitell_$f(SornF2dEll *out, const Sorn2dPt *points, int32_t n);
SornR2dEll *sorn_2d_poly_fitell_$r(SornR2dEll *out, const Sorn2dPt *points, int32_t n);
SornR2dPt *sorn_f2d_poly_moment1(SornR2dPt *out, const SornF2dPt *points, int32_t n);
SornMoment2 *sorn_f2d_poly_moment2(SornMoment2 *out, const SornF2dPt *points, int32_t n);
SornMoment2 *sorn_f2d_poly_moment2_$c(SornMoment2 *out, const SornF2dPt *points, int32_t n);
double *sorn_f2d_poly_covariance(double *out, const SornF2dPt *points, int32_t n);
SornF2dPt *sorn_f2d_poly_centroid(SornF2dPt *out, const SornF2dPt *points, int32_t n);
double sorn_f2d_poly_rotation(const SornF2dPt *points, int32_t n);
SornF2dEll *sorn_f2d_poly_fitell(SornF2dEll *out, const SornF2dPt *points, int32_t n);
SornR2dEll *sorn_f2d_poly_fitell_$r(SornR2dEll *out, const SornF2dPt *points, int32_t n);
SornR2dPt *sorn_r2d_poly_moment1(SornR2dPt *out, const SornR2dPt *points, int32_t n);
SornMoment2 *sorn_r2d_poly_moment2(SornMoment2 *out, const SornR2dPt *points, int32_t n);
SornMoment2 *sorn_r2d_poly_moment2_$c(SornMoment2 *out, const SornR2dPt *points, int32_t n);
double *sorn_r2d_poly_covariance(double *out, const SornR2dPt *points, int32_t n);
SornF2dPt *sorn_r2d_poly_centroid_$f(SornF2dPt *out, const SornR2dPt *points, int32_t n);
double sorn_r2d_poly_rotation(const SornR2dPt *points, int32_t n);
SornR2dEll *sorn_r2d_poly_fitell(SornR2dEll *out, const SornR2dPt *points, int32_t n);
SornF2dEll *sorn_r2d_poly_fitell_$f(SornF2dEll *out, const SornR2dPt *points, int32_t n);

#ifdef __cplusplus
}
#endif

#endif /* SORN_H */
