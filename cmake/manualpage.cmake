# Sets `variable` to the manual page of the program `target`, made of its --help and of what the
# help leaves out, docs/man/TARGET.h2m; empty without help2man, or where the program cannot run.
find_program(KELP_HELP2MAN help2man)
mark_as_advanced(KELP_HELP2MAN)
function(kelp_manual_page variable target)
    set(${variable} "" PARENT_SCOPE)
    if(NOT KELP_HELP2MAN OR (CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR))
        message(STATUS "No manual page of ${target}: no help2man, or no emulator")
        return()
    endif()
    set(page ${PROJECT_BINARY_DIR}/man/${target}.1)
    set(include ${PROJECT_SOURCE_DIR}/docs/man/${target}.h2m)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    add_custom_command(OUTPUT ${page} DEPENDS ${target} ${include}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
        COMMAND ${KELP_HELP2MAN} --no-info --include ${include} --output ${page}
            "${emulator} '$<TARGET_FILE:${target}>'"  # for a shell
        VERBATIM)
    add_custom_target(${target}.1 ALL DEPENDS ${page})
    set(${variable} ${page} PARENT_SCOPE)
endfunction()
