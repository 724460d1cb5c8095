# What the library stands on: XDR from libtirpc, BLAS and LAPACK with OpenBLAS preferred (a reference BLAS is many times
# slower in the dense steps).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(TIRPC REQUIRED IMPORTED_TARGET libtirpc)

set(BLA_VENDOR OpenBLAS)
find_package(LAPACK QUIET)
if(NOT LAPACK_FOUND)
  unset(BLA_VENDOR)
  find_package(LAPACK REQUIRED)
endif()
message(STATUS "BLAS and LAPACK: ${LAPACK_LIBRARIES} ${BLAS_LIBRARIES}")

# Of the imports and of tests: dense and sparse algebra.
if(ZEL_TOOLS OR ZEL_TESTS OR ZEL_PYTHON)
  find_package(Eigen3 REQUIRED NO_MODULE)
endif()
# Of imports: compressed input and a sparse solver. MUMPS, in its form without MPI, comes without a CMake package.
if(ZEL_TOOLS OR ZEL_PYTHON)
  find_package(ZLIB REQUIRED)
  find_path(MUMPS_INCLUDE_DIR dmumps_c.h PATH_SUFFIXES mumps_seq REQUIRED)
  find_library(MUMPS_LIBRARY dmumps_seq REQUIRED)
  find_path(METIS_INCLUDE_DIR metis.h REQUIRED)
  find_library(METIS_LIBRARY metis REQUIRED)
  add_library(MUMPS::dmumps_seq UNKNOWN IMPORTED)
  set_target_properties(MUMPS::dmumps_seq PROPERTIES
    IMPORTED_LOCATION ${MUMPS_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES "${MUMPS_INCLUDE_DIR};${METIS_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES ${METIS_LIBRARY})
endif()
# Of the command: arguments, JSON, and what draws in pages.
if(ZEL_TOOLS)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_file(THREE_JS three.min.js PATHS /usr/share/javascript/three PATH_SUFFIXES build)
  find_file(THREE_ORBIT_CONTROLS OrbitControls.js PATHS /usr/share/javascript/three/examples/js/controls)
  if(NOT THREE_JS OR NOT THREE_ORBIT_CONTROLS)
    message(FATAL_ERROR "The command needs three.js, release 111, with OrbitControls.js: Debian's package libjs-three, or "
      "-DTHREE_JS=... -DTHREE_ORBIT_CONTROLS=... The library alone, -DZEL_TOOLS=OFF, does not.")
  endif()
endif()
if(ZEL_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZEL_BENCH)
  find_package(benchmark REQUIRED)
  find_package(meshoptimizer REQUIRED)
endif()
