# Script mode: requires the interface to be exactly the frozen version 1, as the device build
# will: same types, fields, methods and order (Debian's aidl dumps the sources and compares),
# the stability annotation where the sources have it, and a `.hash` that matches the files.
#
# Debian's aidl predates @VintfStability, so the comparison itself runs on copies without that
# line (and without the frozen files' header comment); the annotation is checked separately.
file(REMOVE_RECURSE ${OUT_DIR})

# The annotation: every type the sources mark must be marked in the frozen files too.
file(GLOB_RECURSE frozen_files RELATIVE ${FROZEN} ${FROZEN}/*.aidl)
file(GLOB_RECURSE source_files RELATIVE ${SOURCES} ${SOURCES}/vendor/*.aidl)
if(NOT frozen_files STREQUAL source_files)
    message(FATAL_ERROR "frozen files (${frozen_files}) differ from the sources (${source_files})")
endif()
foreach(f ${frozen_files})
    file(STRINGS ${SOURCES}/${f} in_source REGEX "^@VintfStability")
    file(STRINGS ${FROZEN}/${f} in_frozen REGEX "^@VintfStability")
    list(LENGTH in_source n_source)
    list(LENGTH in_frozen n_frozen)
    if(NOT n_source EQUAL n_frozen)
        message(FATAL_ERROR "${f}: @VintfStability ${n_source} time(s) in the source, "
                            "${n_frozen} in the frozen version")
    endif()
    file(READ ${FROZEN}/${f} text)
    string(REGEX REPLACE "@VintfStability[ \t]*\n" "" text "${text}")
    string(REGEX REPLACE "(^|\n)//[^\n]*" "\\1" text "${text}")
    string(REGEX REPLACE "^\n+" "" text "${text}")
    file(WRITE ${OUT_DIR}/frozen/${f} "${text}")
endforeach()

file(GLOB_RECURSE sources ${STRIPPED}/*.aidl)
execute_process(COMMAND ${AIDL} --dumpapi --out=${OUT_DIR}/dump -I ${STRIPPED} ${sources}
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "aidl --dumpapi failed")
endif()
execute_process(COMMAND ${AIDL} --checkapi ${OUT_DIR}/frozen ${OUT_DIR}/dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the interface is not compatible with version 1")
endif()
execute_process(COMMAND diff -r ${OUT_DIR}/frozen ${OUT_DIR}/dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the interface differs from the frozen version 1 (see the diff above)")
endif()

# The hash the device build verifies before it uses the frozen files.
execute_process(COMMAND ${HASH_SCRIPT} ${FROZEN} OUTPUT_VARIABLE computed
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
file(STRINGS ${FROZEN}/.hash recorded LIMIT_COUNT 1)
string(REGEX REPLACE "[ \t].*" "" recorded "${recorded}")
if(NOT rc EQUAL 0 OR NOT computed STREQUAL recorded)
    message(FATAL_ERROR "${FROZEN}/.hash holds '${recorded}', the files hash to '${computed}'")
endif()
message(STATUS "interface matches version 1, hash ${computed}")
