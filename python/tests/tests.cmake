# The Python tests, one CTest test per test file, run by pytest with the
# package from the build tree.
# The sorn tool, where it is built, is the C side of the agreement tests.
set(sorn_py_test_env "PYTHONPATH=${CMAKE_CURRENT_BINARY_DIR}" "PYTHONDONTWRITEBYTECODE=1")
if(TARGET sorn)
  list(APPEND sorn_py_test_env "SORN_TOOL=$<TARGET_FILE:sorn>")
endif()
file(GLOB sorn_py_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/test_*.py)
foreach(test_file IN LISTS sorn_py_tests)
  get_filename_component(test_name "${test_file}" NAME_WE)
  add_test(NAME python.${test_name}
           COMMAND ${Python3_EXECUTABLE} -m pytest -q -p no:cacheprovider "${test_file}"
           WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  set_tests_properties(python.${test_name} PROPERTIES
    ENVIRONMENT "${sorn_py_test_env}"
    LABELS python TIMEOUT 300)
endforeach()

# The example runs on a local cluster over pictures it writes itself.
add_test(NAME python.example_dask_regions
         COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/examples/dask_regions.py
                 ${CMAKE_CURRENT_BINARY_DIR}/example_pictures --make 3 --workers 2)
set_tests_properties(python.example_dask_regions PROPERTIES
  ENVIRONMENT "${sorn_py_test_env}" LABELS python TIMEOUT 300
  PASS_REGULAR_EXPRESSION "3 pictures in")
