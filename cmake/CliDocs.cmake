# Man pages (velactl's from its command table, vela-service's from --help by help2man) and
# bash completion for the command-line programs, made at build time and installed with them. A cross build cannot
# run what it builds, so it makes neither; the host build makes both, and then help2man is
# required: a package without its pages is a broken package, and the installed-package test
# must not vanish with them.
if(NOT CMAKE_CROSSCOMPILING)
    find_program(HELP2MAN_EXECUTABLE help2man)
    if(NOT HELP2MAN_EXECUTABLE)
        message(FATAL_ERROR "help2man is missing (the man pages need it): run scripts/setup.sh")
    endif()
endif()

# pax_man_page(<target> <one-line summary> [GENERATED <args that print it>])
# With GENERATED the program writes its own page (velactl: a section per command, from its
# command table); otherwise help2man makes one from --help.
function(pax_man_page target summary)
    cmake_parse_arguments(M "" "" "GENERATED" ${ARGN})
    if(CMAKE_CROSSCOMPILING)
        return()
    endif()
    set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
    if(M_GENERATED)
        add_custom_command(
            OUTPUT ${page}
            COMMAND $<TARGET_FILE:${target}> ${M_GENERATED} > ${page}
            DEPENDS ${target}
            COMMENT "Writing the ${target} man page"
            VERBATIM)
    else()
        add_custom_command(
            OUTPUT ${page}
            COMMAND ${HELP2MAN_EXECUTABLE} --no-info --no-discard-stderr --section=1
                    "--name=${summary}" --output=${page} $<TARGET_FILE:${target}>
            DEPENDS ${target}
            COMMENT "Writing the ${target} man page"
            VERBATIM)
    endif()
    add_custom_target(${target}_man ALL DEPENDS ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

# pax_bash_completion(<target> FILE <script> | GENERATED <args that print it>)
function(pax_bash_completion target)
    cmake_parse_arguments(C "" "FILE" "GENERATED" ${ARGN})
    set(destination ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    if(C_FILE)
        install(FILES ${C_FILE} DESTINATION ${destination} RENAME ${target})
        return()
    endif()
    if(CMAKE_CROSSCOMPILING)
        return()
    endif()
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.bash)
    add_custom_command(
        OUTPUT ${script}
        COMMAND $<TARGET_FILE:${target}> ${C_GENERATED} > ${script}
        DEPENDS ${target}
        COMMENT "Writing the ${target} bash completion"
        VERBATIM)
    add_custom_target(${target}_completion ALL DEPENDS ${script})
    install(FILES ${script} DESTINATION ${destination} RENAME ${target})
endfunction()
