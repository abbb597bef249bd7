# What `cmake --install` gives: the shared library, its public headers under include/kzcore, a CMake package and a
# pkg-config file, and the command-line companions. All find their prefix from where they lie, so that an installed tree
# can be moved.

include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/KzPublicHeaders.cmake)

set(kz_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kzcore)

install(TARGETS kzcore EXPORT kzcoreTargets)
if(KZ_BUILD_TOOLS)
    install(TARGETS kzini)
    set(kz_pages ${PROJECT_BINARY_DIR}/tools/pages)
    install(FILES ${kz_pages}/kzini.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${kz_pages}/kzini DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${kz_pages}/_kzini DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${kz_pages}/kzini.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
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
