# Sets `variable` to the command that runs the program `target` on this machine: the program itself,
# or in a cross build a script that runs it in the emulator. For tests that start processes.
function(kelp_launcher variable target)
    set(launcher $<TARGET_FILE:${target}>)
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
        set(launcher ${CMAKE_BINARY_DIR}/emulated/${target})
        file(GENERATE OUTPUT ${launcher}
            CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${target}> \"$@\"\n"
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    endif()
    set(${variable} "${launcher}" PARENT_SCOPE)
endfunction()
