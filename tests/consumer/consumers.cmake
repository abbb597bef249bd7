# A test for each consumer that run.sh has in its table. They share one install, which is made first.
set(kz_consumer_run ${CMAKE_CURRENT_LIST_DIR}/run.sh)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${kz_consumer_run})
execute_process(COMMAND ${kz_consumer_run} --names OUTPUT_VARIABLE kz_consumers COMMAND_ERROR_IS_FATAL ANY)
string(STRIP "${kz_consumers}" kz_consumers)
string(REPLACE "\n" ";" kz_consumers "${kz_consumers}")

foreach(name IN LISTS kz_consumers)
    # These two build the whole library once more, which one compiler proves well enough.
    set(builds_library FALSE)
    if(name MATCHES "^(static|subdirectory)$")
        set(builds_library TRUE)
        if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            continue()
        endif()
    endif()
    add_test(NAME consumer.${name}
        COMMAND ${kz_consumer_run} ${name} ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/consumers ${CMAKE_CXX_COMPILER})
    set_tests_properties(consumer.${name} PROPERTIES
        TIMEOUT 600
        ENVIRONMENT "CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}")
    if(name STREQUAL "install")
        set_tests_properties(consumer.${name} PROPERTIES FIXTURES_SETUP consumer_install)
    else()
        set_tests_properties(consumer.${name} PROPERTIES FIXTURES_REQUIRED consumer_install)
    endif()
    if(builds_library)
        set_tests_properties(consumer.${name} PROPERTIES PROCESSORS 2)
    endif()
endforeach()
