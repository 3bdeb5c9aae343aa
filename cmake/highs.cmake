# Locates HiGHS as shipped by the PyPI package highsbox (pinned in pyproject.toml) and defines
# the imported target highs::c_api. Only the C API header is used: the wheel's C++ classes are
# built with another libstdc++ ABI.
execute_process(
  COMMAND "${Python_EXECUTABLE}" -c
          "import highsbox as h; print(h.highs_include_dir()); print(h.highs_lib_dir())"
  OUTPUT_VARIABLE _highs_dirs
  RESULT_VARIABLE _highs_rc
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT _highs_rc EQUAL 0)
  message(FATAL_ERROR "HiGHS not found: install it with 'pip install highsbox==1.15.1'")
endif()
string(REPLACE "\n" ";" _highs_dirs "${_highs_dirs}")
list(GET _highs_dirs 0 HIGHS_INCLUDE_DIR)
list(GET _highs_dirs 1 HIGHS_LIB_DIR)

if(WIN32)
  find_library(HIGHS_LIBRARY NAMES highs PATHS "${HIGHS_LIB_DIR}" NO_DEFAULT_PATH REQUIRED)
else()
  set(HIGHS_LIBRARY "${HIGHS_LIB_DIR}/${CMAKE_SHARED_LIBRARY_PREFIX}highs${CMAKE_SHARED_LIBRARY_SUFFIX}")
endif()
if(NOT EXISTS "${HIGHS_INCLUDE_DIR}/interfaces/highs_c_api.h" OR NOT EXISTS "${HIGHS_LIBRARY}")
  message(FATAL_ERROR "highsbox at ${HIGHS_LIB_DIR} lacks libhighs or interfaces/highs_c_api.h")
endif()

file(STRINGS "${HIGHS_INCLUDE_DIR}/HConfig.h" _highs_ver REGEX "#define HIGHS_VERSION_(MAJOR|MINOR|PATCH)")
string(REGEX REPLACE ".*MAJOR ([0-9]+).*MINOR ([0-9]+).*PATCH ([0-9]+).*" "\\1.\\2.\\3" HIGHS_VERSION "${_highs_ver}")
if(NOT HIGHS_VERSION STREQUAL "1.15.1")
  message(FATAL_ERROR "Velmor needs HiGHS 1.15.1 (highsbox==1.15.1); found ${HIGHS_VERSION}")
endif()
message(STATUS "HiGHS ${HIGHS_VERSION}: ${HIGHS_LIBRARY}")

add_library(highs::c_api SHARED IMPORTED)
set_target_properties(highs::c_api PROPERTIES
  IMPORTED_LOCATION "${HIGHS_LIBRARY}"
  IMPORTED_NO_SONAME OFF
  INTERFACE_INCLUDE_DIRECTORIES "${HIGHS_INCLUDE_DIR}")
if(WIN32)
  set_target_properties(highs::c_api PROPERTIES IMPORTED_IMPLIB "${HIGHS_LIBRARY}")
endif()
