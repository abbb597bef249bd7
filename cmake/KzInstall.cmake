# What `cmake --install` gives, in three components: `library` (the shared library), `development` (its public headers under
# include/kzcore, a CMake package and a pkg-config file; a static library too) and `tools` (the command-line companions).
# All find their prefix from where they lie, so that an installed tree can be moved.

include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/KzPublicHeaders.cmake)

# kz_install_needs(<component> <target>): an install looks for all that it is to copy before it copies the first file, since
# half an install is worse than none.
function(kz_install_needs component target)
    install(CODE "
        if(NOT EXISTS \"$<TARGET_FILE:${target}>\")
            message(FATAL_ERROR \"Nothing is installed, because ${target} is not built. \"
                \"First: cmake --build \\\"${PROJECT_BINARY_DIR}\\\" --target kzcore_installed\")
        endif()" COMPONENT ${component})
endfunction()

# Builds what is installed and nothing else.
add_custom_target(kzcore_installed DEPENDS kzcore)
get_target_property(kz_type kzcore TYPE)
if(kz_type STREQUAL "STATIC_LIBRARY")
    kz_install_needs(development kzcore)
else()
    kz_install_needs(library kzcore)
endif()
if(KZ_BUILD_TOOLS)
    add_dependencies(kzcore_installed kzini)
    kz_install_needs(tools kzini)
endif()

set(kz_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kzcore)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

install(TARGETS kzcore EXPORT kzcoreTargets
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
list(TRANSFORM KZ_PUBLIC_HEADERS PREPEND source/ OUTPUT_VARIABLE kz_public_header_files)
install(FILES ${kz_public_header_files} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kzcore)

install(EXPORT kzcoreTargets NAMESPACE kzcore:: DESTINATION ${kz_package_dir})
configure_package_config_file(cmake/kzcoreConfig.cmake.in ${PROJECT_BINARY_DIR}/kzcoreConfig.cmake
    INSTALL_DESTINATION ${kz_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kzcoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kzcoreConfig.cmake ${PROJECT_BINARY_DIR}/kzcoreConfigVersion.cmake
    DESTINATION ${kz_package_dir})

# What a static library needs behind it: the C++ library, which only the compiler of that language links by itself, and
# threads.
set(kz_pc_private)
foreach(library IN LISTS CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
    if(library MATCHES "^(stdc\\+\\+|c\\+\\+|m)$")
        string(APPEND kz_pc_private "-l${library} ")
    endif()
endforeach()
string(APPEND kz_pc_private -pthread)
set(kz_pc_cflags)
if(kz_type STREQUAL "STATIC_LIBRARY")
    set(kz_pc_cflags " -DKZCORE_STATIC")
endif()
# From the pkg-config file up to the prefix; an absolute library folder has none to be moved with.
file(RELATIVE_PATH kz_pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/kzcore.pc.in ${PROJECT_BINARY_DIR}/kzcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kzcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(KZ_BUILD_TOOLS)
    set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tools)
    install(TARGETS kzini)
    set(kz_pages ${PROJECT_BINARY_DIR}/tools/pages)
    install(FILES ${kz_pages}/kzini.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${kz_pages}/kzini DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${kz_pages}/_kzini DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${kz_pages}/kzini.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()
