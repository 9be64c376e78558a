# Joins the two copies of the kernel units into one library (run with
# cmake -P from the build, see SORN_KERNEL_CLONES in CMakeLists.txt).
#
# Every kernel unit is compiled twice from the same source: once for the
# baseline of x86-64, once for x86-64-v3 (AVX2), each copy with hidden
# definitions. Here, every function a unit defines, S, becomes S.plain in
# the first copy and S.v3 in the second, and kernel_ifuncs.c defines S as an
# indirect function: the dynamic linker asks its resolver once, at load, and
# every later call and every function pointer goes straight to the copy for
# the machine. Nothing else of the library changes: the exported names are
# those of a plain build, and their results are the same to the bit.
#
# The second copy must share nothing with the first: its private C++ lives
# in a namespace of its own (the compiler sees sorn as sorn_v3), its data
# with C names are made local, and a function that the compiler emitted out of line
# outside that namespace (an instance of a standard template, say) would be
# merged with the plain one by the linker, so it stops the build.
#
# Arguments: PLAIN and V3, the two lists of objects in the same order; UNITS,
# the units' paths (for names); OUT, the folder of the results; NM, OBJCOPY.

cmake_minimum_required(VERSION 3.25)

function(defined_globals obj out_funcs out_weak out_data)
  execute_process(COMMAND ${NM} --defined-only --extern-only ${obj}
                  OUTPUT_VARIABLE text RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${obj}")
  endif()
  string(REPLACE "\n" ";" lines "${text}")
  set(funcs)
  set(weak)
  set(data)
  foreach(line IN LISTS lines)
    if(line MATCHES "^[0-9a-f]* ([A-Za-z]) (.+)$")
      set(kind ${CMAKE_MATCH_1})
      set(name ${CMAKE_MATCH_2})
      if(kind STREQUAL "T")
        list(APPEND funcs "${name}")
      elseif(kind STREQUAL "W" OR kind STREQUAL "V" OR kind STREQUAL "u")
        list(APPEND weak "${name}")
      else()
        list(APPEND data "${name}")
      endif()
    endif()
  endforeach()
  set(${out_funcs} "${funcs}" PARENT_SCOPE)
  set(${out_weak} "${weak}" PARENT_SCOPE)
  set(${out_data} "${data}" PARENT_SCOPE)
endfunction()

list(LENGTH PLAIN count)
list(LENGTH V3 count_v3)
if(NOT count EQUAL count_v3)
  message(FATAL_ERROR "kernel clones: ${count} plain objects but ${count_v3} x86-64-v3 objects")
endif()
file(MAKE_DIRECTORY ${OUT})

set(ifuncs "")
set(index 0)
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  list(GET PLAIN ${i} plain)
  list(GET V3 ${i} v3)
  list(GET UNITS ${i} unit)
  string(REGEX REPLACE "[/.]" "_" stem "${unit}")

  defined_globals(${plain} funcs weak data)
  defined_globals(${v3} funcs_v3 weak_v3 data_v3)
  # The C names are the kernels and the layers around them; C++ functions
  # have names of their own in each copy, and each copy calls its own.
  list(FILTER funcs EXCLUDE REGEX "^_Z")
  list(FILTER funcs_v3 EXCLUDE REGEX "^_Z")
  if(NOT funcs STREQUAL funcs_v3)
    message(FATAL_ERROR "kernel clones: ${unit} defines other functions in its two copies")
  endif()
  foreach(name IN LISTS weak_v3)
    # The personality routine's reference is the same data in both copies.
    if(NOT name MATCHES "sorn_v3" AND NOT name MATCHES "^DW\\.ref\\.")
      message(FATAL_ERROR
        "kernel clones: the x86-64-v3 copy of ${unit} emits ${name} out of line, outside its own "
        "namespace, so the linker would share it with the plain copy. Keep such helpers inline "
        "or in the library's namespace.")
    endif()
  endforeach()

  set(plain_map "")
  set(v3_map "")
  foreach(name IN LISTS funcs)
    string(APPEND plain_map "${name} ${name}.plain\n")
    string(APPEND v3_map "${name} ${name}.v3\n")
    math(EXPR index "${index} + 1")
    string(APPEND ifuncs
      "extern void p${index}(void) __asm__(\"${name}.plain\");\n"
      "extern void v${index}(void) __asm__(\"${name}.v3\");\n"
      "static kernel_fn *r${index}(void) { return v3_usable() ? v${index} : p${index}; }\n"
      "void f${index}(void) __asm__(\"${name}\") __attribute__((ifunc(\"r${index}\")));\n")
  endforeach()
  file(WRITE ${OUT}/${stem}.plain.map "${plain_map}")
  file(WRITE ${OUT}/${stem}.v3.map "${v3_map}")

  # Data with a C name would be defined twice: the second copy keeps its own.
  set(localize)
  foreach(name IN LISTS data_v3)
    if(NOT name MATCHES "sorn_v3")
      list(APPEND localize --localize-symbol=${name})
    endif()
  endforeach()
  execute_process(COMMAND ${OBJCOPY} --redefine-syms=${OUT}/${stem}.plain.map ${plain}
                          ${OUT}/${stem}.plain.o RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${OBJCOPY} failed on ${plain}")
  endif()
  execute_process(COMMAND ${OBJCOPY} --redefine-syms=${OUT}/${stem}.v3.map ${localize} ${v3}
                          ${OUT}/${stem}.v3.o RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${OBJCOPY} failed on ${v3}")
  endif()
endforeach()

file(WRITE ${OUT}/kernel_ifuncs.c.new
  "/* Made by cmake/kernel_clones.cmake: one indirect function per function of\n"
  "   the kernel units, resolved once at load to the copy for this machine. */\n"
  "typedef void kernel_fn(void);\n"
  "\n"
  "/* x86-64-v3: AVX2, FMA, BMI2 and the rest of that level, with the\n"
  "   operating system saving the wide registers. */\n"
  "static int v3_usable(void) {\n"
  "  static int usable = -1;\n"
  "  if (usable < 0) {\n"
  "    __builtin_cpu_init();\n"
  "    usable = __builtin_cpu_supports(\"x86-64-v3\") ? 1 : 0;\n"
  "  }\n"
  "  return usable;\n"
  "}\n"
  "\n"
  "${ifuncs}")
# Unchanged contents keep the file's time, so that nothing recompiles.
file(COPY_FILE ${OUT}/kernel_ifuncs.c.new ${OUT}/kernel_ifuncs.c ONLY_IF_DIFFERENT)
