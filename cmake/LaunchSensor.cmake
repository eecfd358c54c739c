# The launch sensor: host/kernel/bpf/launch.bpf.c compiled for the kernel and embedded in the program.
# Without clang or libbpf it is left out, and tevmon-host watch says so.
find_program(TEVMON_BPF_CLANG NAMES clang clang-14)
find_program(TEVMON_BPF_STRIP NAMES llvm-strip llvm-strip-14)
pkg_check_modules(LIBBPF IMPORTED_TARGET libbpf)

function(tev_launch_sensor target)
    if(NOT TEVMON_BPF_CLANG OR NOT LIBBPF_FOUND)
        message(WARNING "clang or libbpf is missing: tevmon-host is built WITHOUT its launch sensor, "
            "and its command watch will refuse to run. Install the packages clang and libbpf-dev.")
        return()
    endif()
    message(STATUS "Launch sensor: compiled with ${TEVMON_BPF_CLANG}")
    set(folder ${CMAKE_BINARY_DIR}/generated/host/kernel/bpf)
    file(MAKE_DIRECTORY ${folder})
    set(strip)
    if(TEVMON_BPF_STRIP)
        set(strip COMMAND ${TEVMON_BPF_STRIP} -g ${folder}/launch.bpf.o)
    endif()
    set(includes)
    foreach(include ${LIBBPF_INCLUDE_DIRS})
        list(APPEND includes -isystem ${include})
    endforeach()
    add_custom_command(OUTPUT ${folder}/launch_object.inc
        # The debugging information becomes the types by which the loader fits it to a kernel.
        COMMAND ${TEVMON_BPF_CLANG} -target bpf -mcpu=v3 -O2 -g -Wall -Wextra -Werror
            -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -I${CMAKE_SOURCE_DIR} ${includes}
            -c ${CMAKE_SOURCE_DIR}/host/kernel/bpf/launch.bpf.c -o ${folder}/launch.bpf.o
        ${strip}
        COMMAND ${CMAKE_COMMAND} -DINPUT=${folder}/launch.bpf.o -DOUTPUT=${folder}/launch_object.inc
            -P ${CMAKE_SOURCE_DIR}/cmake/EmbedBytes.cmake
        DEPENDS ${CMAKE_SOURCE_DIR}/host/kernel/bpf/launch.bpf.c ${CMAKE_SOURCE_DIR}/host/kernel/bpf/launch_record.h
            ${CMAKE_SOURCE_DIR}/host/kernel/bpf/kernel_types.h ${CMAKE_SOURCE_DIR}/cmake/EmbedBytes.cmake
        COMMENT "Compiling the launch sensor" VERBATIM)
    target_sources(${target} PRIVATE ${folder}/launch_object.inc)
    target_include_directories(${target} PRIVATE ${CMAKE_BINARY_DIR}/generated)
    target_compile_definitions(${target} PRIVATE TEVMON_LAUNCH_SENSOR)
    target_link_libraries(${target} PUBLIC PkgConfig::LIBBPF)
endfunction()
