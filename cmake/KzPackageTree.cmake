# Run by cpack once the components are in their folders, before they are packed: adds what Debian wants in each package, and
# gives every file the time of SOURCE_DATE_EPOCH.

if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    message(FATAL_ERROR "The packages are to have a time: set SOURCE_DATE_EPOCH, or run scripts/package.")
endif()
# Debian takes English names of days and months only.
set(ENV{LC_ALL} C)
string(TIMESTAMP kz_time "%a, %d %b %Y %H:%M:%S +0000" UTC)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(tree ${CPACK_TEMPORARY_DIRECTORY}/${component})
    set(doc ${tree}/usr/share/doc/${name})
    file(WRITE ${doc}/changelog "kzcore (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
        "  * Built from the tree of this version, whose CHANGELOG.md says what is in it.\n\n"
        " -- ${CPACK_PACKAGE_CONTACT}  ${kz_time}\n")
    file(COPY ${CPACK_KZ_COPYRIGHT} DESTINATION ${doc}
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    file(GLOB kz_pages ${tree}/usr/share/man/man*/*)
    execute_process(COMMAND gzip -9n ${doc}/changelog ${kz_pages} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND find ${tree} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND chmod -R go=rX ${tree} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
