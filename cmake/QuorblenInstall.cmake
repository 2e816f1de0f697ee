# Installs headers, libraries, the module, the program and a package config, so that a
# consumer can `find_package(Quorblen)` and link `Quorblen::quorblen`.
include(CMakePackageConfigHelpers)

install(TARGETS quorblen_host quorblen_image quorblen_tv quorblen_node quorblen_inpaint
                quorblen_lib
        EXPORT QuorblenTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorblen)
install(TARGETS quorblen_module LIBRARY DESTINATION ${QUORBLEN_MODULE_INSTALL_DIR})
install(TARGETS quorblen RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(dir host image tv node inpaint)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorblen/${dir}
            FILES_MATCHING PATTERN "*.h" PATTERN "KernelSupport.h" EXCLUDE
            PATTERN "FillPixels.h" EXCLUDE PATTERN "CandidateSearch.h" EXCLUDE
            PATTERN "PassState.h" EXCLUDE PATTERN "FillOrder.h" EXCLUDE
            PATTERN "RecipeRunner.h" EXCLUDE PATTERN "PlaneSweep.h" EXCLUDE
            PATTERN "SweepKernels*.h" EXCLUDE PATTERN "ThreadTeam.h" EXCLUDE
            PATTERN "SseVectors.h" EXCLUDE PATTERN "Avx2Vectors.h" EXCLUDE
            PATTERN "RowKernels*.h" EXCLUDE PATTERN "TvSweep.h" EXCLUDE
            PATTERN "OiioSupport.h" EXCLUDE PATTERN "OutputFileProxy.h" EXCLUDE
            PATTERN "ExrZipStream.h" EXCLUDE PATTERN "FileWriting.h" EXCLUDE PATTERN "SampleMemory.h" EXCLUDE)
endforeach()

install(EXPORT QuorblenTargets NAMESPACE Quorblen:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quorblen)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QuorblenConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QuorblenConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quorblen)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuorblenConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuorblenConfig.cmake ${PROJECT_BINARY_DIR}/QuorblenConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quorblen)
