# What the library stands on: XDR from libtirpc, BLAS and LAPACK with OpenBLAS preferred (a reference BLAS is many times
# slower in the dense steps).
find_package(PkgConfig REQUIRED)
pkg_check_modules(TIRPC REQUIRED IMPORTED_TARGET libtirpc)

set(BLA_VENDOR OpenBLAS)
find_package(LAPACK QUIET)
if(NOT LAPACK_FOUND)
  unset(BLA_VENDOR)
  find_package(LAPACK REQUIRED)
endif()
message(STATUS "BLAS and LAPACK: ${LAPACK_LIBRARIES} ${BLAS_LIBRARIES}")


# Of the command: arguments and JSON.
if(ZEL_TOOLS)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
endif()
if(ZEL_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZEL_BENCH)
  find_package(benchmark REQUIRED)
endif()
