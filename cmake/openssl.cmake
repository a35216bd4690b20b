# OpenSSL::SSL and OpenSSL::Crypto: Debian's libraries, or its archives for a program that is static
# as a whole; those for 32-bit ARM are fetched into the build folder.
if(KESTRUNE_STATIC)
    set(OPENSSL_USE_STATIC_LIBS ON)
    set(openssl_suffix a)
else()
    set(openssl_suffix so)
endif()
if(NOT CMAKE_CROSSCOMPILING)
    find_package(OpenSSL REQUIRED)
    return()
endif()

set(openssl ${CMAKE_BINARY_DIR}/source/openssl)
# Programs find them there by a path relative to their own: they do not tell where they were built.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/armhf-openssl ${openssl}
                COMMAND_ERROR_IS_FATAL ANY)
set(openssl_libraries ${openssl}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
set(OPENSSL_INCLUDE_DIR ${openssl}/usr/include CACHE PATH "")
set(OPENSSL_SSL_LIBRARY ${openssl_libraries}/libssl.${openssl_suffix} CACHE FILEPATH "")
set(OPENSSL_CRYPTO_LIBRARY ${openssl_libraries}/libcrypto.${openssl_suffix} CACHE FILEPATH "")
find_package(OpenSSL REQUIRED)
target_include_directories(OpenSSL::Crypto SYSTEM INTERFACE
                           ${openssl}/usr/include/${CMAKE_LIBRARY_ARCHITECTURE})
