# The Debian packages that `cpack` makes out of the three components of an install: the library, under its soname; what is
# needed to build against it; the command-line companions. Configure with the preset `package`, as scripts/package does.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The kzcore maintainers <maintainers@users.noreply.kzcore.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
# The same bytes whatever umask, owner and time the build has; SOURCE_DATE_EPOCH gives the time.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/KzPackageTree.cmake)
set(CPACK_KZ_COPYRIGHT ${CMAKE_CURRENT_LIST_DIR}/copyright)

set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kzcore)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/source)  # libkzcore.so.0, for the tools
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(kz_about "kzcore is the core runtime library of a graphical dataflow language
environment: relocatable handles, magic cookies, counted strings, interned
paths, files, resource files and INI files, with one channel for reports.")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # which would come before each of these
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libkzcore${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "core runtime library for dataflow programs\n${kz_about}\n\nThis package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkzcore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkzcore${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "core runtime library (development files)\n${kz_about}\n\nThis package holds the headers, a CMake package and a pkg-config\nfile.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kzcore-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkzcore${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "core runtime library (command-line tools)\n${kz_about}\n\nThis package holds kzini, which reads and edits INI files.")

include(CPack)
