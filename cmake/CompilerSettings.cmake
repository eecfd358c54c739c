# How everything of ours is compiled and linked.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
# Programs are linked position-independent too, whatever the compiler's default.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_compile_options(
    -Wall -Wextra -Werror -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wformat=2 -Wcast-align -Wnull-dereference -Wundef
    -fstack-protector-strong -fstack-clash-protection -fno-plt
)
# A file's path in a message of the build or an assertion is the one in the tree.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Unique symbols would keep the module in memory after dlclose.
    add_compile_options(-fno-gnu-unique -fcf-protection=full -Wlogical-op)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    add_compile_options(-Wthread-safety -fcf-protection=full)
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT TEVMON_SANITIZE)
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g -DNDEBUG")
    set(CMAKE_C_FLAGS_RELEASE "-O2 -g -DNDEBUG")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Where each variable is at each instruction takes a third of the compile time. Lines, types
        # and frames stay, and the code is the same.
        add_compile_options(-fno-var-tracking)
    endif()
endif()
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
if(TEVMON_SANITIZE)
    add_compile_options(-fsanitize=${TEVMON_SANITIZE} -fno-omit-frame-pointer)
    if(TEVMON_SANITIZE MATCHES "undefined")
        # A host of another maker hands over objects whose vtables carry no type information.
        add_compile_options(-fno-sanitize-recover=undefined -fno-sanitize=vptr)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Sanitizers' own code makes g++ see uses that are none (in std::regex, for one).
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
    add_link_options(-fsanitize=${TEVMON_SANITIZE})
endif()

if(TEVMON_FUZZ)
    # The fuzzer steers by the edges it has seen in our code.
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
    # A finding's stack names lines; nobody steps through these programs.
    add_compile_options(-gline-tables-only)
endif()

# Shared libraries of ours resolve every symbol at link time. Sanitizers leave theirs open.
function(tev_no_undefined target)
    if(NOT (TEVMON_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
        target_link_options(${target} PRIVATE -Wl,-z,defs)
    endif()
endfunction()

# A library that dlclose unmaps runs what it gave to atexit then, under the thread sanitizer too.
function(tev_unload_runs_atexit target)
    if(TEVMON_SANITIZE MATCHES "thread")
        target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/UnloadAtExit.cpp)
        set_source_files_properties(${CMAKE_SOURCE_DIR}/cmake/UnloadAtExit.cpp
            TARGET_DIRECTORY ${target} PROPERTIES COMPILE_OPTIONS "-Wno-cast-function-type")
    endif()
endfunction()
