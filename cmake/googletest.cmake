# GTest::gtest_main: Debian's library, or built from Debian's source package of it for another
# processor, whose packages cannot be installed beside our own.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(GTest REQUIRED)
    return()
endif()

set(source /usr/src/googletest/googletest)
add_library(googletest STATIC ${source}/src/gtest-all.cc ${source}/src/gtest_main.cc)
set_target_properties(googletest PROPERTIES COMPILE_OPTIONS "" COMPILE_WARNING_AS_ERROR OFF) # our warnings are for our sources
target_include_directories(googletest PRIVATE ${source} SYSTEM PUBLIC ${source}/include)
add_library(GTest::gtest_main ALIAS googletest)
