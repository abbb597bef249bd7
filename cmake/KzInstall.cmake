# What `cmake --install` gives: the shared library, its public headers under include/kzcore, a CMake package and a
# pkg-config file, and the command-line companions. All find their prefix from where they lie, so that an installed tree
# can be moved.

include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/KzPublicHeaders.cmake)

set(kz_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kzcore)

install(TARGETS kzcore EXPORT kzcoreTargets)
if(KZ_BUILD_TOOLS)
    install(TARGETS kzini)
endif()
list(TRANSFORM KZ_PUBLIC_HEADERS PREPEND source/ OUTPUT_VARIABLE kz_public_header_files)
install(FILES ${kz_public_header_files} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kzcore)

install(EXPORT kzcoreTargets NAMESPACE kzcore:: DESTINATION ${kz_package_dir})
configure_package_config_file(cmake/kzcoreConfig.cmake.in ${PROJECT_BINARY_DIR}/kzcoreConfig.cmake
    INSTALL_DESTINATION ${kz_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kzcoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kzcoreConfig.cmake ${PROJECT_BINARY_DIR}/kzcoreConfigVersion.cmake
    DESTINATION ${kz_package_dir})

file(RELATIVE_PATH kz_pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/kzcore.pc.in ${PROJECT_BINARY_DIR}/kzcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kzcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
