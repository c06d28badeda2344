# What every folder of this tree shares: flags, where programs go, how a library and a test are
# declared. The build tree's `program/` has the layout of an installed program folder, so that
# everything can be started where it was built.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
add_compile_options(-Wall -Wextra -Wpedantic -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # False alarms in the library's own string operators, mended in 13.
    add_compile_options(-Wno-restrict)
endif()
add_compile_definitions(_FILE_OFFSET_BITS=64)

set(VELMORA_PROGRAM_DIR ${CMAKE_BINARY_DIR}/program)
set(VELMORA_INSTALL_DIR lib/velmora-backup)

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

if(VELMORA_SANITIZE)
    add_compile_options(-fsanitize=${VELMORA_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${VELMORA_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # False alarms in the library's regular expressions, with what the sanitizers put in between.
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
    if(VELMORA_SANITIZE MATCHES "undefined")
        # Else it is only a line in the log of a test that passes.
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()
if(VELMORA_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()

# A folder is a library and its files are the members: velmora_library(NAME [LINK lib...]).
# Sub-folders belong to it. Includes are written from the root of the tree.
function(velmora_library name)
    cmake_parse_arguments(ARG "SHARED" "" "LINK" ${ARGN})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS *.cpp *.h)
    list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
    if(ARG_SHARED)
        add_library(${name} SHARED ${sources})
    else()
        add_library(${name} STATIC ${sources})
    endif()
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARG_LINK})
endfunction()

# A program in the program folder (or in a sub-folder of it) that finds the kit beside itself:
# velmora_program(NAME SOURCES file... LINK lib... [FOLDER sub/folder])
function(velmora_program name)
    cmake_parse_arguments(ARG "" "FOLDER" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINK})
    velmora_place(${name} "${ARG_FOLDER}")
endfunction()

# Puts a program or add-on at its place, in the build tree and in the installation.
function(velmora_place name folder)
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY ${VELMORA_PROGRAM_DIR}/${folder}
        LIBRARY_OUTPUT_DIRECTORY ${VELMORA_PROGRAM_DIR}/${folder})
    set(up "")
    if(folder)
        string(REGEX REPLACE "[^/]+" ".." up "${folder}")
        set(up "/${up}")
    endif()
    set_target_properties(${name} PROPERTIES
        BUILD_RPATH_USE_ORIGIN ON
        INSTALL_RPATH "$ORIGIN${up}/lib")
    install(TARGETS ${name}
        RUNTIME DESTINATION ${VELMORA_INSTALL_DIR}/${folder}
        LIBRARY DESTINATION ${VELMORA_INSTALL_DIR}/${folder})
endfunction()

# Tests of one folder: velmora_test(NAME [LINK lib...]). Every *Test.cpp of the folder belongs to it.
function(velmora_test name)
    cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
    find_package(GTest REQUIRED)
    file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h)
    add_executable(${name} ${sources})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest_main)
    target_compile_definitions(${name} PRIVATE VELMORA_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()
