# Script mode: strips @VintfStability and runs aidl --lang=ndk on each type; only the types in
# LOG_TYPES get the transaction-log hook, which costs a JSON value on every call.
cmake_policy(SET CMP0057 NEW)
file(REMOVE_RECURSE ${OUT_DIR}/stripped)
foreach(type ${TYPES})
    file(READ ${SRC_ROOT}/${PKG_DIR}/${type}.aidl text)
    string(REGEX REPLACE "@VintfStability[ \t]*\n" "" text "${text}")
    file(WRITE ${OUT_DIR}/stripped/${PKG_DIR}/${type}.aidl "${text}")
endforeach()
foreach(type ${TYPES})
    set(log_flag)
    if(type IN_LIST LOG_TYPES)
        set(log_flag --log)
    endif()
    execute_process(
        COMMAND ${AIDL} --lang=ndk --structured --version=1 ${log_flag} -I ${OUT_DIR}/stripped
                -o ${OUT_DIR}/src -h ${OUT_DIR}/include ${OUT_DIR}/stripped/${PKG_DIR}/${type}.aidl
        RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "aidl failed on ${type}.aidl")
    endif()
endforeach()
