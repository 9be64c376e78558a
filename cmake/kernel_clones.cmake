# Joins the copies of the kernel units into one library (run with cmake -P
# from the build, see SORN_KERNEL_CLONES in CMakeLists.txt).
#
# Every kernel unit is compiled once per level from the same source: for the
# baseline of x86-64 (plain), for x86-64-v3 (AVX2) and for x86-64-v4
# (AVX-512), each copy with hidden definitions. Here, every function a unit
# defines, S, becomes S.plain, S.v3 and S.v4 in the copies, and
# kernel_ifuncs.c defines S as an indirect function: the dynamic linker asks
# its resolver once, at load, and every later call and every function
# pointer goes straight to the copy for the machine (core/kernel_level.h).
# Nothing else of the library changes: the exported names are those of a
# plain build, and their results are the same to the bit.
#
# A wider copy must share nothing with the others: its private C++ lives in
# a namespace of its own (the compiler sees sorn as sorn_v3 or sorn_v4),
# its data with C names are made local, and a function that the compiler
# emitted out of line outside that namespace (an instance of a standard
# template, say) would be merged with the plain one by the linker, so it
# stops the build.
#
# Arguments: LEVELS, the copies with plain first and the widest last;
# OBJECTS_<level>, each copy's objects in the same order; UNITS, the units'
# paths (for names); OUT, the folder of the results; NM, OBJCOPY.

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

list(GET LEVELS 0 first)
list(LENGTH OBJECTS_${first} count)
foreach(level IN LISTS LEVELS)
  list(LENGTH OBJECTS_${level} n)
  if(NOT n EQUAL count)
    message(FATAL_ERROR "kernel clones: ${count} ${first} objects but ${n} ${level} objects")
  endif()
endforeach()
file(MAKE_DIRECTORY ${OUT})

# The resolver of every function: the widest copy the processor runs.
list(REVERSE LEVELS)
set(choice "")
foreach(level IN LISTS LEVELS)
  if(level STREQUAL first)
    string(APPEND choice "${level}_\${index}")
  else()
    string(REGEX REPLACE "^v" "" number "${level}")
    string(APPEND choice "level >= ${number} ? ${level}_\${index} : ")
  endif()
endforeach()
list(REVERSE LEVELS)

set(ifuncs "")
set(index 0)
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  list(GET UNITS ${i} unit)
  string(REGEX REPLACE "[/.]" "_" stem "${unit}")

  foreach(level IN LISTS LEVELS)
    list(GET OBJECTS_${level} ${i} obj_${level})
    defined_globals(${obj_${level}} funcs_${level} weak_${level} data_${level})
    # The C names are the kernels and the layers around them; C++ functions
    # have names of their own in each copy, and each copy calls its own.
    list(FILTER funcs_${level} EXCLUDE REGEX "^_Z")
    if(NOT funcs_${level} STREQUAL funcs_${first})
      message(FATAL_ERROR "kernel clones: ${unit} defines other functions in its ${level} copy")
    endif()
    if(NOT level STREQUAL first)
      foreach(name IN LISTS weak_${level})
        # The personality routine's reference is the same data in every copy.
        if(NOT name MATCHES "sorn_${level}" AND NOT name MATCHES "^DW\\.ref\\.")
          message(FATAL_ERROR
            "kernel clones: the ${level} copy of ${unit} emits ${name} out of line, outside its "
            "own namespace, so the linker would share it with the plain copy. Keep such helpers "
            "inline or in the library's namespace.")
        endif()
      endforeach()
    endif()
    set(map_${level} "")
  endforeach()

  foreach(name IN LISTS funcs_${first})
    math(EXPR index "${index} + 1")
    foreach(level IN LISTS LEVELS)
      string(APPEND map_${level} "${name} ${name}.${level}\n")
      string(APPEND ifuncs "extern void ${level}_${index}(void) __asm__(\"${name}.${level}\");\n")
    endforeach()
    string(CONFIGURE "${choice}" pick)
    string(APPEND ifuncs
      "static kernel_fn *r${index}(void) { const int level = kernel_level(); return ${pick}; }\n"
      "void f${index}(void) __asm__(\"${name}\") __attribute__((ifunc(\"r${index}\")));\n")
  endforeach()

  foreach(level IN LISTS LEVELS)
    file(WRITE ${OUT}/${stem}.${level}.map "${map_${level}}")
    # Data with a C name would be defined in every copy: the wider ones keep
    # their own.
    set(localize)
    if(NOT level STREQUAL first)
      foreach(name IN LISTS data_${level})
        if(NOT name MATCHES "sorn_${level}")
          list(APPEND localize --localize-symbol=${name})
        endif()
      endforeach()
    endif()
    execute_process(COMMAND ${OBJCOPY} --redefine-syms=${OUT}/${stem}.${level}.map ${localize}
                            ${obj_${level}} ${OUT}/${stem}.${level}.o RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "${OBJCOPY} failed on ${obj_${level}}")
    endif()
  endforeach()
endforeach()

file(WRITE ${OUT}/kernel_ifuncs.c.new
  "/* Made by cmake/kernel_clones.cmake: one indirect function per function of\n"
  "   the kernel units, resolved once at load to the copy for this machine. */\n"
  "#include \"core/kernel_level.h\"\n"
  "\n"
  "typedef void kernel_fn(void);\n"
  "\n"
  "/* Asked once: every resolver runs while the library is relocated. */\n"
  "static int kernel_level(void) {\n"
  "  static int level = -1;\n"
  "  if (level < 0) level = sorn_kernel_level();\n"
  "  return level;\n"
  "}\n"
  "\n"
  "${ifuncs}")
# Unchanged contents keep the file's time, so that nothing recompiles.
file(COPY_FILE ${OUT}/kernel_ifuncs.c.new ${OUT}/kernel_ifuncs.c ONLY_IF_DIFFERENT)
