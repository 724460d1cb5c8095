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


# Of the command: arguments and JSON; for imports dense and sparse algebra, Lanczos and compressed input. CHOLMOD comes without a
# CMake package.
if(ZEL_TOOLS)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_package(Eigen3 REQUIRED NO_MODULE)
  find_package(ZLIB REQUIRED)
  pkg_check_modules(ARPACK REQUIRED IMPORTED_TARGET arpack)
  find_path(CHOLMOD_INCLUDE_DIR cholmod.h PATH_SUFFIXES suitesparse REQUIRED)
  find_library(CHOLMOD_LIBRARY cholmod REQUIRED)
  add_library(SuiteSparse::cholmod UNKNOWN IMPORTED)
  set_target_properties(SuiteSparse::cholmod PROPERTIES
    IMPORTED_LOCATION ${CHOLMOD_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${CHOLMOD_INCLUDE_DIR})
endif()
if(ZEL_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZEL_BENCH)
  find_package(benchmark REQUIRED)
  find_package(meshoptimizer REQUIRED)
endif()
