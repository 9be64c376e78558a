// numpy arrays as the library's operands.
//
// An image is a numpy array of two to four axes: (rows, columns) is one
// channel, (rows, columns, channels) has 1 to 4 channels on its last axis,
// and (planes, rows, columns, channels) is a stack of planes for the
// operations that take them. It is described to the library by a record
// over the array's own memory: the record's extents are the array's, its
// byte strides the array's strides, its data the array's first element. No
// pixel is copied for that.
//
// What the library's loops ask of that memory is that a row's pixels, and a
// pixel's channels, lie next to each other: they walk a row element by
// element. Row and plane strides are free: row slices, crops, padded rows,
// rows upside down (negative row strides) and rows repeated (stride 0) are
// described as they are. Other layouts are made walkable without copying
// where the operation does not care in which order it visits the pixels
// (element-wise arithmetic, histograms): a transposed array is described
// with rows and columns exchanged, and an array whose columns run backwards
// from its last column, provided every operand of the call allows the same.
// Anything else (every other column, a channel picked out of a pixel,
// misaligned elements) is copied into a fresh array first, or for an output
// computed in a fresh array and copied back; copies_made() counts them.
//
// Everything here checks before the library is called: a non-array is a
// TypeError, an element type without a library code (or not in the byte
// order of the machine) is a TypeError, a shape the library cannot take is
// a ValueError, and so is an array beyond the 2 GiB that one record can
// address.
#pragma once

#include <sorn.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <span>
#include <string>

namespace sorn::python {

namespace py = pybind11;

/* ---------------- element types ---------------- */

// The library's code of an array's element type, 0 when it has none.
uint32_t type_code(const py::array &a);
// The numpy type of a code, and its name ("uint8", ...).
py::dtype dtype_of(uint32_t code);
std::string type_name(uint32_t code);
// A dtype argument (anything np.dtype() takes) as a code; TypeError when the
// library has no code for it.
uint32_t code_of_dtype_arg(py::handle dtype, const char *function);

/* ---------------- operands ---------------- */

// An array seen as planes x rows x columns x channels, with its strides in
// bytes along those four axes.
// A null array until an operand is read: numpy's default array would be
// allocated for nothing.
inline py::array no_array() { return py::reinterpret_steal<py::array>(py::handle()); }

struct Image {
  py::array array = no_array();
  uint32_t type = 0;
  int ndim = 0;                   // of the numpy array
  int64_t ext[4] = {1, 1, 1, 1};  // planes, rows, columns, channels
  int64_t str[4] = {0, 0, 0, 0};  // bytes
  char *data = nullptr;
  int64_t esize = 0;
  bool writable = false;
  bool aligned = true;

  int64_t planes() const { return ext[0]; }
  int64_t rows() const { return ext[1]; }
  int64_t cols() const { return ext[2]; }
  int64_t channels() const { return ext[3]; }
  // Rows of adjacent pixels of adjacent channels, in aligned elements.
  bool walkable() const;
};

// What a function takes: the numpy axes it accepts.
struct Axes {
  int min_ndim = 2;
  int max_ndim = 3;  // 4 for the operations that take stacks of planes
};

// An image argument: TypeError for a non-array or an element type the
// library lacks, ValueError for its shape.
Image image_arg(py::handle obj, const char *function, const char *name, Axes axes = {});

// A pixel mask: one byte per pixel (uint8, or bool as its bytes), of the
// image's rows and columns (and planes, or one plane for all), with no
// channel axis or a channel axis of 1. With element=true a mask of the
// image's channel count is taken too, one byte per element.
Image mask_arg(py::handle obj, const char *function, const char *name, const Image &image,
               bool element = false);

// A function's output: `out` when given (checked against the shape and,
// unless dtype is None, the type; it must be writable), else a new array of
// `code` shaped like `like`. The output is created only after the layout is
// planned (see walk), so that a fresh one takes the orientation the inputs
// are read in.
struct Output {
  Image image;                    // what the library writes
  py::array result = no_array();  // what the function returns: out, or the fresh array
  py::array back = no_array();    // when set, image is a temporary that goes back here
  bool fresh = false;
};
Output output_arg(py::handle out, uint32_t code, const Image &like, const char *function);

// ValueError when `out` shares memory with `in`; with alias_ok an `out`
// that is exactly `in` (same memory, same strides) is allowed, for the
// operations that read each element before they write it.
void check_overlap(const Output &out, const Image &in, const char *function, const char *name,
                   bool alias_ok);

// Makes every operand walkable (see the head of this file) and creates a
// fresh output in the orientation chosen. order_free: the operation's
// result does not depend on the order in which pixels are visited.
void walk(std::span<Image *const> inputs, Output *out, bool order_free);

// Plane p of a stack, as an image of three axes (the image itself when it is
// no stack).
Image plane(const Image &img, int64_t p);

// Whether the library's call frame may take a stack whole: it merges a
// dimension into the next where the outer stride is no shorter than the
// inner extent (rows upside down or repeated would be merged wrongly), so a
// stack that is not laid out that way goes to the library plane by plane.
bool frame_walkable(const Image &img);

// The same memory read with rows and columns exchanged.
Image transposed(const Image &img);

// After the call: a temporary output goes back into the caller's array.
py::array finish(Output &out);

// The record of an image (rank 4 for a numpy array of four axes, else 3),
// and one of a single row of elements (matrix-by-vector operands).
SornArray record(const Image &img);

// Layout copies made since the module was loaded (a diagnostic for tests).
uint64_t copies_made();

// Constants: a number, or one number per channel.
void channel_constants(py::handle value, int64_t channels, double *out, const char *function,
                       const char *name);

}  // namespace sorn::python
