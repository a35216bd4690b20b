# cJSON is the target kestrune_cjson: Debian's shared library or, for a program that is static as a
# whole, Debian's source of it, fetched into the build folder.
add_library(kestrune_cjson INTERFACE)
if(NOT KESTRUNE_STATIC)
    find_library(CJSON_LIBRARY cjson REQUIRED)
    target_link_libraries(kestrune_cjson INTERFACE ${CJSON_LIBRARY})
    return()
endif()

set(sources ${CMAKE_BINARY_DIR}/source) # holds cjson/, as the programs include cjson/cJSON.h
execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/cjson-source ${sources}/cjson
                COMMAND_ERROR_IS_FATAL ANY)
enable_language(C)
add_library(cjson STATIC ${sources}/cjson/cJSON.c)
set_target_properties(cjson PROPERTIES COMPILE_WARNING_AS_ERROR OFF)
target_compile_options(cjson PRIVATE -ffp-contract=off)
target_link_libraries(kestrune_cjson INTERFACE cjson)
# The header of the library, where it is installed, is the same: what includes it compiles as for a
# shared library.
find_path(CJSON_HEADER cjson/cJSON.h)
if(NOT CJSON_HEADER)
    target_include_directories(kestrune_cjson SYSTEM INTERFACE ${sources})
endif()
