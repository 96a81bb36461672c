# Script mode: dumps the API of the interface as it is now and requires it to be exactly the
# frozen version 1 (same types, fields and methods, in the same order), and compatible with it.
file(REMOVE_RECURSE ${OUT_DIR})
file(GLOB_RECURSE sources ${STRIPPED}/*.aidl)
execute_process(COMMAND ${AIDL} --dumpapi --out=${OUT_DIR} -I ${STRIPPED} ${sources}
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "aidl --dumpapi failed")
endif()
execute_process(COMMAND ${AIDL} --checkapi ${FROZEN} ${OUT_DIR} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the interface is not compatible with version 1")
endif()
execute_process(COMMAND diff -r ${FROZEN} ${OUT_DIR} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the interface differs from the frozen version 1 (see the diff above)")
endif()
message(STATUS "interface matches version 1")
