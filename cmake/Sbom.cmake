# A software bill of materials (SPDX 2.3, JSON): what the library and the command are made of and link to, with versions as found
# and licences. Two builds from the same packages give the same text when SOURCE_DATE_EPOCH is set.
set(ZEL_SBOM ${PROJECT_BINARY_DIR}/zel.spdx.json)
set(sbom_packages "")
set(sbom_relations "")

# zel_sbom(id name version licence supplier): one package.
function(zel_sbom id name version licence supplier)
  if("${version}" STREQUAL "")
    set(version NOASSERTION)
  endif()
  string(APPEND sbom_packages "${sbom_comma}
    {\"SPDXID\": \"SPDXRef-${id}\", \"name\": \"${name}\", \"versionInfo\": \"${version}\", \"supplier\": \"${supplier}\",
     \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false, \"licenseConcluded\": \"${licence}\",
     \"licenseDeclared\": \"${licence}\", \"copyrightText\": \"NOASSERTION\"}")
  set(sbom_packages "${sbom_packages}" PARENT_SCOPE)
  set(sbom_comma "," PARENT_SCOPE)
endfunction()

# zel_sbom_relation(from relation to)
function(zel_sbom_relation from relation to)
  string(APPEND sbom_relations ",
    {\"spdxElementId\": \"SPDXRef-${from}\", \"relationshipType\": \"${relation}\", \"relatedSpdxElement\": \"SPDXRef-${to}\"}")
  set(sbom_relations "${sbom_relations}" PARENT_SCOPE)
endfunction()

# The first match of a pattern's group in a file, empty without one.
function(zel_version_in file pattern out)
  set(${out} "" PARENT_SCOPE)
  if(EXISTS "${file}")
    file(STRINGS "${file}" lines REGEX "${pattern}" LIMIT_COUNT 1)
    if("${lines}" MATCHES "${pattern}")
      set(${out} "${CMAKE_MATCH_1}" PARENT_SCOPE)
    endif()
  endif()
endfunction()

set(maintainers "Organization: the zel maintainers")
zel_sbom(libzel libzel ${PROJECT_VERSION} BSD-3-Clause "${maintainers}")
zel_sbom(tirpc libtirpc "${TIRPC_VERSION}" BSD-3-Clause NOASSERTION)
zel_sbom(stdcxx libstdc++ "${CMAKE_CXX_COMPILER_VERSION}" "GPL-3.0-or-later WITH GCC-exception-3.1" NOASSERTION)
if(BLA_VENDOR STREQUAL "OpenBLAS")
  pkg_check_modules(SBOM_BLAS QUIET openblas)
  zel_sbom(blas openblas "${SBOM_BLAS_VERSION}" BSD-3-Clause NOASSERTION)
else()
  zel_sbom(blas lapack "" BSD-3-Clause-Open-MPI NOASSERTION)
endif()
foreach(part tirpc blas stdcxx)
  zel_sbom_relation(libzel DEPENDS_ON ${part})
endforeach()

if(ZEL_TOOLS)
  zel_version_in("${MUMPS_INCLUDE_DIR}/dmumps_c.h" "MUMPS_VERSION +\"([0-9.]+)\"" mumps)
  zel_version_in("${METIS_INCLUDE_DIR}/metis.h" "METIS_VER_MAJOR +([0-9]+)" metis_major)
  zel_version_in("${METIS_INCLUDE_DIR}/metis.h" "METIS_VER_MINOR +([0-9]+)" metis_minor)
  file(READ "${THREE_JS}" three LIMIT 4000)
  string(REGEX MATCH "REVISION *= *\"([0-9]+)\"" three "${three}")
  set(three "${CMAKE_MATCH_1}")
  zel_sbom(zel zel ${PROJECT_VERSION} BSD-3-Clause "${maintainers}")
  zel_sbom(eigen Eigen "${Eigen3_VERSION}" MPL-2.0 NOASSERTION)
  zel_sbom(zlib zlib "${ZLIB_VERSION_STRING}" Zlib NOASSERTION)
  if(ZEL_MPI)
    zel_sbom(mumps dmumps "${mumps}" CECILL-C NOASSERTION)
    zel_sbom(scalapack scalapack "" BSD-3-Clause NOASSERTION)
    zel_sbom(mpi mpi "${MPI_C_VERSION}" NOASSERTION NOASSERTION)
    zel_sbom_relation(mumps DEPENDS_ON scalapack)
    zel_sbom_relation(mumps DEPENDS_ON mpi)
  else()
    zel_sbom(mumps dmumps_seq "${mumps}" CECILL-C NOASSERTION)
  endif()
  zel_sbom(scotch scotch "" CECILL-C NOASSERTION)
  zel_sbom(metis metis "${metis_major}.${metis_minor}" Apache-2.0 NOASSERTION)
  zel_sbom(cli11 CLI11 "${CLI11_VERSION}" BSD-3-Clause NOASSERTION)
  zel_sbom(json "JSON for Modern C++" "${nlohmann_json_VERSION}" MIT NOASSERTION)
  zel_sbom(three three.js "${three}" MIT NOASSERTION)
  foreach(part libzel blas zlib mumps metis stdcxx)
    zel_sbom_relation(zel DEPENDS_ON ${part})
  endforeach()
  foreach(part eigen cli11 json three)
    zel_sbom_relation(zel CONTAINS ${part})
  endforeach()
  zel_sbom_relation(mumps DEPENDS_ON scotch)
  zel_sbom_relation(DOCUMENT DESCRIBES zel)
endif()

string(TIMESTAMP sbom_created UTC)
file(WRITE ${ZEL_SBOM}.new "{\"spdxVersion\": \"SPDX-2.3\", \"dataLicense\": \"CC0-1.0\", \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"zel ${PROJECT_VERSION}\",
  \"documentNamespace\": \"urn:zel:sbom:${PROJECT_VERSION}\",
  \"creationInfo\": {\"created\": \"${sbom_created}\", \"creators\": [\"Tool: the build of zel\"]},
  \"packages\": [${sbom_packages}
  ],
  \"relationships\": [
    {\"spdxElementId\": \"SPDXRef-DOCUMENT\", \"relationshipType\": \"DESCRIBES\", \"relatedSpdxElement\": \"SPDXRef-libzel\"}${sbom_relations}
  ]}
")
file(RENAME ${ZEL_SBOM}.new ${ZEL_SBOM})
